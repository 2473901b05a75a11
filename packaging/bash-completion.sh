# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# What bash offers for bootweave and bootweave-analyze when TAB is pressed.
#
# bash loads this when one of them is first completed, from below /usr/share/bash-completion.
#
# An option is listed with what its value is: "--x" has none, "--x=KIND" needs one, "--x[=KIND]" may have one.
# So are the commands of bootweave-analyze, with what follows them. _bootweave_values knows each KIND.

_bootweave_options=(
    -h --help --init --invoke --method=method --plugin=plugin-files --disable-plugins=plugins
    --plugin-flags=text --plugin-directory=directory --run-once=text --parallel '--randomize[=text]'
    --trace --verbose
    --interactive --interactive-mode-requires=plugins '--daemon[=wait]' --daemon-wait-timeout=text
    '--dump-dependency-tree[=file]'
)

_bootweave_analyze_options=(
    -h --help --profile=file --boot=boot --plugin-directory=directory -o=file --output=file --json --strict
    --around=plugin --threads=text --without=plugin --time=plugin-time
)
_bootweave_analyze_commands=(
    time=none blame=none critical-chain=plugin list=none diff=file verify=file
    plot=none dot=none simulate=none
)
# The commands that take an option which not all of them take.
_bootweave_analyze_takers=(
    "--profile=time,blame,critical-chain,list,plot,dot,simulate"
    "--boot=time,blame,critical-chain,diff,plot,dot,simulate"
    "--plugin-directory=critical-chain,verify,plot,dot,simulate"
    "--json=time,blame,critical-chain,list,diff,verify,dot,simulate"
    --output=plot --strict=verify --around=dot --threads=simulate --without=simulate --time=simulate
)

# _bootweave_offer WORD...: offers those that begin with what is typed. Words that a shell reads as something
# else are left out: they come from files that others have named.
_bootweave_offer() {
    local word
    for word in "$@"; do
        if [[ $word == "$cur"* && $word =~ ^[A-Za-z0-9@%_+:./=-]+$ ]]; then
            COMPREPLY+=("$before$word")
        fi
    done
}

# _bootweave_offer_paths -f|-d: files, or directories.
_bootweave_offer_paths() {
    local path
    while IFS= read -r path; do
        COMPREPLY+=("$before$path")
    done < <(compgen "$1" -- "$cur")
    compopt -o filenames
}

# _bootweave_offer_plugins WITH EXTENSION...: those of the plugin directory that is named on the line, or of
# the host; by file when WITH is "files", and else by name.
_bootweave_offer_plugins() {
    local with=$1 directory=/usr/libexec/bootweave/plugins index file extension
    shift
    for ((index = 1; index < COMP_CWORD; index++)); do
        case ${COMP_WORDS[index]} in
        --plugin-directory=*) directory=${COMP_WORDS[index]#*=} ;;
        --plugin-directory)
            directory=${COMP_WORDS[index + 1]}
            [[ $directory != = ]] || directory=${COMP_WORDS[index + 2]}
            ;;
        esac
    done
    for extension in "$@"; do
        for file in "$directory"/*."$extension"; do
            [[ -f $file ]] || continue
            file=${file##*/}
            if [[ $with != files ]]; then
                file=${file%.*}
                file=${file#lib}
            fi
            _bootweave_offer "$file"
        done
    done
}

# _bootweave_offer_reported: the plugins that a report may name: those of the plugin directory and the host's
# debug injections.
_bootweave_offer_reported() {
    local name lines=/etc/corvane/bootweave/debug.conf
    _bootweave_offer_plugins names json so debug
    [[ -f $lines && -r $lines ]] || return
    while IFS=: read -r name _ || [[ -n $name ]]; do
        read -r name <<<"$name"
        _bootweave_offer "$name"
    done <"$lines"
}

# Offers what goes on behind the last comma of a list.
_bootweave_next_in_list() {
    local head=${cur%"${cur##*,}"}
    before+=$head
    cur=${cur#"$head"}
}

# _bootweave_values KIND: offers values.
_bootweave_values() {
    case $1 in
    none | text) ;;
    file) _bootweave_offer_paths -f ;;
    directory) _bootweave_offer_paths -d ;;
    plugin) _bootweave_offer_reported ;;
    plugins)
        _bootweave_next_in_list
        _bootweave_offer_plugins names json so
        ;;
    plugin-files)
        _bootweave_next_in_list
        _bootweave_offer_plugins files json so debug
        ;;
    plugin-time)
        _bootweave_offer_reported
        COMPREPLY=("${COMPREPLY[@]/%/=}")
        compopt -o nospace
        ;;
    boot) _bootweave_offer boot last ;;
    wait) _bootweave_offer wait nowait ;;
    method)
        if [[ " ${COMP_WORDS[*]} " == *" --daemon"[=\ ]* ]]; then
            _bootweave_offer start stop
        else
            _bootweave_offer start apply_host_profile
        fi
        ;;
    esac
}

# _bootweave_kind OPTION TABLE...: prints what the option's value is; nothing when it has none.
_bootweave_kind() {
    local option=$1 entry
    shift
    for entry in "$@"; do
        entry=${entry%]}
        case $entry in
        "$option"=* | "${option}[="*) printf %s "${entry#*=}" ;;
        esac
    done
}

# _bootweave_split TABLE...: puts what is typed of a word or value into "cur" and the kind of a value into
# "kind". Where = parts words, an option, the = and the value come as three of them; elsewhere as one, and
# "before" is what has to stand before each word that is offered.
_bootweave_split() {
    local last=${COMP_WORDS[COMP_CWORD - 1]} option=
    cur=${COMP_WORDS[COMP_CWORD]}
    if [[ $cur == = ]]; then
        option=$last
        cur=
    elif [[ $last == = ]] && ((COMP_CWORD > 2)); then
        option=${COMP_WORDS[COMP_CWORD - 2]}
    elif [[ $cur == --*=* ]]; then
        option=${cur%%=*}
        before=$option=
        cur=${cur#*=}
    elif [[ $last == -* && " $* " == *" $last="* ]]; then
        option=$last
    fi
    is_value=$option
    [[ -z $option ]] || kind=$(_bootweave_kind "$option" "$@")
}

# _bootweave_offer_options TABLE...: each with its = where it has a value; such a one is not done yet. Letters
# are not offered: to type one is as fast.
_bootweave_offer_options() {
    local entry
    for entry in "$@"; do
        case $entry in
        -? | -?=*) ;;
        *'[='*) _bootweave_offer "${entry%%\[*}" "${entry%%\[*}=" ;;
        *=*) _bootweave_offer "${entry%%=*}=" ;;
        *) _bootweave_offer "$entry" ;;
        esac
    done
    if ((${#COMPREPLY[@]} == 1)) && [[ ${COMPREPLY[0]} == *= ]]; then
        compopt -o nospace
    fi
}

_bootweave() {
    local cur kind='' before='' is_value
    COMPREPLY=()
    _bootweave_split "${_bootweave_options[@]}"
    if [[ -n $is_value ]]; then
        _bootweave_values "$kind"
    else
        _bootweave_offer_options "${_bootweave_options[@]}"
    fi
}

# Puts the command of the line, if there is one before the cursor, into "command".
_bootweave_analyze_find_command() {
    local index word
    for ((index = 1; index < COMP_CWORD; index++)); do
        word=${COMP_WORDS[index]}
        if [[ $word == = ]]; then
            index=$((index + 1))
        elif [[ $word != -* ]]; then
            command=$word
            return
        elif [[ ${COMP_WORDS[index + 1]} != = && " ${_bootweave_analyze_options[*]} " == *" $word="* ]]; then
            index=$((index + 1))
        fi
    done
}

# Puts the options that the command takes, or all when there is none yet, into "taken".
_bootweave_analyze_take_options() {
    local option entry
    for option in "${_bootweave_analyze_options[@]}"; do
        for entry in ${command:+"${_bootweave_analyze_takers[@]}"}; do
            if [[ $entry == "${option%%=*}="* && ,${entry#*=}, != *",$command,"* ]]; then
                continue 2
            fi
        done
        taken+=("$option")
    done
}

_bootweave_analyze() {
    local cur kind='' before='' is_value command='' taken=()
    COMPREPLY=()
    _bootweave_split "${_bootweave_analyze_options[@]}"
    _bootweave_analyze_find_command
    if [[ -n $is_value ]]; then
        _bootweave_values "$kind"
    elif [[ $cur == -* ]]; then
        _bootweave_analyze_take_options
        _bootweave_offer_options "${taken[@]}"
    elif [[ -z $command ]]; then
        _bootweave_offer "${_bootweave_analyze_commands[@]%=*}"
    else
        _bootweave_values "$(_bootweave_kind "$command" "${_bootweave_analyze_commands[@]}")"
    fi
}

complete -F _bootweave bootweave
complete -F _bootweave_analyze bootweave-analyze
