#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Turns the syslog.conf of earlier releases into logrelay.conf, once: the old file is put aside.
# Of the old file only a line for all facilities counts, such as "*.info /var/log/syslog.log".

set -eu

OLD=/etc/syslog.conf
NEW=/etc/corvane/logrelay.conf

# The daemon keeps what is more urgent than its level, so one more than the number of the priority.
level_of() {
    number=1
    for name in emerg alert crit err warning notice info debug; do
        if [ "$1" = "$name" ]; then
            echo "$number"
            return
        fi
        number=$((number + 1))
    done
    echo 8
}

{
    echo "# Taken over from $OLD."
    while read -r selector file rest; do
        case "$selector $file $rest" in
        '*.'*' /'*' ')
            echo "level=$(level_of "${selector#*.}")"
            echo "file=$file"
            ;;
        esac
    done <"$OLD"
} >"$NEW.new"
mv -f "$NEW.new" "$NEW"
mv -f "$OLD" "$OLD.upgraded"
