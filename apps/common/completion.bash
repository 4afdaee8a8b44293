# Bash completion of driver-host and device-simulator. The program itself is asked, as commands and
# options follow from the module that it loads.

_ask_program_for_completions() {
    local line=${COMP_LINE:0:COMP_POINT} words i
    # Split by blanks, as COMP_WORDS are split at '=' as well. Backslashes are taken away.
    # shellcheck disable=SC2162
    read -a words <<<"$line"
    [[ $line != *[[:blank:]] ]] || words+=("")
    # What comes before the program, such as a variable, is no argument of it.
    for ((i = 0; i < ${#words[@]}; i++)); do
        [[ ${words[i]} != "$1" ]] || break
    done
    words=("${words[@]:i + 1}")
    # A module may be given as ~/module.so or $PWD/module.so.
    for ((i = 0; i < ${#words[@]}; i++)); do
        words[i]=${words[i]/#\~\//"$HOME"/}
        words[i]=${words[i]/#\$PWD\//"$PWD"/}
        words[i]=${words[i]/#--plugin=\~\//--plugin="$HOME"/}
    done
    mapfile -t COMPREPLY < <("${1/#\~\//"$HOME"/}" --complete "${words[@]}" 2>/dev/null </dev/null)
    if [[ ${COMPREPLY[0]-} == :files ]]; then
        COMPREPLY=()
        compopt -o default
    fi
}

complete -F _ask_program_for_completions driver-host device-simulator
