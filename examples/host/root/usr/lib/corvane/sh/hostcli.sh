# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=sh
#
# What the host's commands share. A command is started with its options as --name=value, one word each, and
# HOSTCLI_COMMAND holding its name; it says what it did on standard output and why it failed, in one line, on
# standard error. The executor runs one command at a time, so none of them locks anything.

# A step that fails without a word ends the command; how it ended is then the whole report.
set -eu

STATE=/var/lib/corvane
COMMAND=${HOSTCLI_COMMAND:-${0##*/}}

# Ends the command with one line on standard error.
fail() {
    printf '%s: %s\n' "$COMMAND" "$*" >&2
    exit 1
}

# Goes to the executor's output log.
say() {
    printf '%s: %s\n' "$COMMAND" "$*"
}

# take_options "WORD..." "$@": puts each option into the variable opt_NAME ("-" becomes "_").
# A WORD is NAME (required), NAME=DEFAULT, or NAME+ (may be repeated; the values are joined by blanks).
take_options() {
    known=$1
    shift
    for word in $known; do
        case $word in
        *=*) eval "opt_$(variable "${word%%=*}")=\${word#*=}" ;;
        *) unset "opt_$(variable "${word%+}")" ;;
        esac
    done
    for argument in "$@"; do
        take_option "$argument"
    done
    for word in $known; do
        case $word in *=*) continue ;; esac
        eval "given=\${opt_$(variable "${word%+}")+yes}"
        [ -n "$given" ] || fail "option --${word%+} is missing"
    done
}

take_option() {
    # shellcheck disable=SC2034     # value is read by the evals
    case $1 in
    --*=*) name=${1%%=*} name=${name#--} value=${1#*=} ;;
    *) fail "'$1' is not an option" ;;
    esac
    for word in $known; do
        case $word in
        "$name+")
            name=$(variable "$name")
            eval "opt_$name=\${opt_$name:+\$opt_$name }\$value"
            return
            ;;
        "$name" | "$name="*)
            eval "opt_$(variable "$name")=\$value"
            return
            ;;
        esac
    done
    fail "unknown option --$name"
}

variable() {
    printf '%s' "$1" | tr - _
}

# A name that becomes part of a path or of another program's arguments.
check_name() {
    case $1 in
    '' | [.-]* | *[!A-Za-z0-9._-]*) fail "'$1' is not a valid name" ;;
    esac
}

# check_number VALUE LOWEST HIGHEST
check_number() {
    case $1 in
    '' | *[!0-9]* | ????????????????????*) fail "'$1' is not a number" ;;
    esac
    if [ "$1" -lt "$2" ] || [ "$1" -gt "$3" ]; then
        fail "$1 is not between $2 and $3"
    fi
}

# Runs a program; when it fails, the last line that it wrote becomes the command's error.
try() {
    output=$("$@" 2>&1) || fail "${1##*/}: $(printf '%s\n' "${output:-no reason given}" | tail -n 1)"
}

# Replaces a file by what comes in, as a whole: it is never seen half written.
save_file() {
    mkdir -p "${1%/*}" 2>/dev/null || fail "cannot make ${1%/*}"
    if ! { cat >"$1.new" && mv -f "$1.new" "$1"; } 2>/dev/null; then
        rm -f "$1.new"
        fail "cannot write $1"
    fi
}

# save_state NAME: the same below the host's state directory.
save_state() {
    save_file "$STATE/$1"
}

# require_state NAME WHAT: stops when an earlier step has not left its mark.
require_state() {
    [ -e "$STATE/$1" ] || fail "$2"
}
