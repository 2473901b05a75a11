# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=sh disable=SC2034
#
# What the host's init scripts share. A script reads this, defines start, stop and status, and ends with:
# serve "$@"

# The program that starts init scripts puts a word for its platform in front of the action, which the platform
# takes out again; not so on a host without control groups.
case ${1-} in ++group=*) shift ;; esac

# A step that fails without a word ends the script; how it ended is then the whole report.
set -eu

# The script's own, also through a start link.
NAME=${0##*/}
case $NAME in [SK][0-9][0-9]*) NAME=${NAME#???} ;; esac

RUN=/var/run/corvane
STATE=/var/lib/corvane

# Exit status of an action, as init scripts have it.
NOT_CONFIGURED=6
NOT_RUNNING=3

# The message goes to the system log, too: the boot does not look at what a script prints.
say() {
    printf '%s: %s\n' "$NAME" "$*"
    logger -t "$NAME" -- "$*" 2>/dev/null || true
}

# fail STATUS WORD...
fail() {
    status=$1
    shift
    logger -t "$NAME" -- "$*" 2>/dev/null || true
    printf '%s: %s\n' "$NAME" "$*" >&2
    exit "$status"
}

# daemon_start: runs /usr/lib/corvane/sbin/NAME in the background, with a session and a pid file of its own.
daemon_start() {
    daemon_is_running && return
    # No job of a shell without job control leads a process group, so this setsid keeps the process id.
    setsid "/usr/lib/corvane/sbin/$NAME" </dev/null >/dev/null 2>&1 &
    echo "$!" >"$RUN/$NAME.pid"
}

# daemon_stop: asks it to end, and ends it after five seconds.
daemon_stop() {
    start-stop-daemon --stop --quiet --oknodo --remove-pidfile --retry TERM/5/KILL/2 \
        --pidfile "$RUN/$NAME.pid"
}

daemon_is_running() {
    start-stop-daemon --status --pidfile "$RUN/$NAME.pid"
}

daemon_status() {
    if daemon_is_running; then
        echo "running, process $(cat "$RUN/$NAME.pid")"
    else
        echo "not running"
        return "$NOT_RUNNING"
    fi
}

# wait_for SECONDS COMMAND...: repeats the command until it succeeds.
wait_for() {
    tries=$(($1 * 20))
    shift
    until "$@"; do
        tries=$((tries - 1))
        [ "$tries" -gt 0 ] || return 1
        sleep 0.05
    done
}

# Takes the script's arguments.
serve() {
    case ${1-} in
    start | stop | status) "$1" ;;
    restart)
        stop
        start
        ;;
    *)
        echo "usage: $NAME start|stop|restart|status" >&2
        exit 2
        ;;
    esac
}
