# SPDX-License-Identifier: Apache-2.0
"""Hosts with init scripts."""

from harness import File

SCRIPTS = "/etc/init.d"
ORDER = "/run/order"            # "ACTION NAME" of each script that was run, in the order of their beginnings
PROFILE = "/var/log/sysboot.log"


def lister(text, status=0):
    """Files for a lister of init scripts that prints this text, if it is asked as it should be."""
    program = f'#!/bin/sh\n[ "$*" = -p ] || exit 9\ncat /etc/scripts\nexit {status}\n'
    return {"/bin/chkconfig": File(program, 0o755), "/etc/scripts": text}


def script(name, lines="", directory=SCRIPTS):
    """Files for an init script that notes that it runs and then runs these lines, with $action set."""
    text = f"#!/bin/sh\nfor action; do :; done\necho $action {name} >>{ORDER}\n{lines}\n"
    return {f"{directory}/{name}": File(text, 0o755)}


def init_scripts(**scripts):
    """Files for scripts and their lister; each is given as its priority, or as that and its lines.

    A profiling log is there, too, as a boot has left it.
    """
    files = {PROFILE: "the boot's block\n"}
    listed = []
    for name, entry in scripts.items():
        priority, lines = entry if isinstance(entry, tuple) else (entry, "")
        files |= script(name, lines)
        listed.append(f"{SCRIPTS}/{name} {priority}\n")
    return {**files, **lister("".join(listed))}


def begun(ending):
    """The notes of the scripts that were run."""
    return (ending.read(ORDER) or "").splitlines()


def start_line(name, directory=SCRIPTS):
    """The command line that starts a script, as messages show it."""
    return f"{directory}/{name} ++group=init/{name} start"


def stop_line(name, directory=SCRIPTS):
    return f"{directory}/{name} stop"
