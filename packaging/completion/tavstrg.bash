# Completion of tavstrg for bash. Commands, options and arguments come from the tool's help, so they are those of the
# installed version. Works with and without the package bash-completion.

# Prints the options of the tool, or of its command $2, one per line, each with its value ("--machine FILE").
_tavstrg_options()
{
    local line
    while IFS= read -r line; do
        if [[ $line =~ ^'  '(-[^' ']+)(' '([^' ']+))?(' '|$) ]]; then
            local names=${BASH_REMATCH[1]} takes=${BASH_REMATCH[3]} name
            for name in ${names//,/ }; do
                printf '%s%s\n' "$name" "${takes:+ $takes}"
            done
        fi
    done < <("$1" ${2:+"$2"} --help 2>/dev/null)
}

# Prints the first word of each line in a section of the help of the tool, or of its command $3.
_tavstrg_section()
{
    local line inside=
    while IFS= read -r line; do
        if [[ $line == "$2:" ]]; then
            inside=1
        elif [[ -z $line ]]; then
            inside=
        elif [[ -n $inside && $line =~ ^'  '([^' ']+) ]]; then
            printf '%s\n' "${BASH_REMATCH[1]}"
        fi
    done < <("$1" ${3:+"$3"} --help 2>/dev/null)
}

# Prints "class" for each class and "class method argument..." for each method, with short class names.
_tavstrg_catalogue()
{
    local line class=
    while IFS= read -r line; do
        if [[ $line =~ ^TAV_Storage([A-Za-z]+) ]]; then
            class=${BASH_REMATCH[1]}
            printf '%s\n' "$class"
        elif [[ $line =~ ^' '+([A-Za-z]+)' '+method(.*) ]]; then
            printf '%s %s%s\n' "$class" "${BASH_REMATCH[1]}" "${BASH_REMATCH[2]//,/}"
        fi
    done < <("$1" classes 2>/dev/null)
}

# Prints the names of the columns of disks.
_tavstrg_columns()
{
    local line inside=
    while IFS= read -r line; do
        [[ $line != Columns:* ]] || inside=1
        [[ -z $inside ]] || printf '%s\n' "${line#Columns:}"
    done < <("$1" disks --help 2>/dev/null)
}

# Prints the candidates for an argument of kind $2; $3 and $4 are the class and the method on the line, if any.
_tavstrg_argument()
{
    local class method arguments wanted=${3-} method_given=${4-} prefix=
    wanted=${wanted#TAV_Storage}
    [[ $cur != TAV* ]] || prefix=TAV_Storage
    case $2 in
    *:'{'*'}') # one of these values
        local values=${2#*:\{}
        values=${values%\}}
        compgen -W "${values//,/ }" -- "$cur"
        ;;
    FILE) compgen -f -- "$cur" ;;
    COLUMN | COLUMN,...) # of a list, the last one
        local before=
        [[ $2 != *,... || $cur != *,* ]] || before=${cur%,*},
        compgen -P "$before" -W "$(_tavstrg_columns "$1")" -- "${cur#"$before"}"
        ;;
    DIR) compgen -d -- "$cur" ;;
    CLASS)
        while read -r class method arguments; do
            [[ -n $method ]] || printf '%s\n' "$prefix$class"
        done < <(_tavstrg_catalogue "$1") | compgen -W "$(cat)" -- "$cur"
        ;;
    METHOD | NAME=VALUE)
        while read -r class method arguments; do
            [[ ${class,,} == "${wanted,,}" && -n $method ]] || continue
            if [[ $2 == METHOD ]]; then
                printf '%s\n' "$method"
            elif [[ ${method,,} == "${method_given,,}" ]]; then
                printf '%s\n' "${arguments//VALUE/}"
            fi
        done < <(_tavstrg_catalogue "$1") | compgen -W "$(cat)" -- "$cur"
        ;;
    esac
}

_tavstrg()
{
    local tool=${COMP_WORDS[0]} cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
    local commands command='' takes='' word i given=() kinds=() name kind
    COMPREPLY=()
    # Does not run a word that is not a path of the tool, such as ~/tavstrg.
    type -P -- "$tool" >/dev/null || return 0
    commands=$(_tavstrg_section "$tool" Subcommands)

    # bash splits "--option=value".
    if [[ $cur == = ]]; then
        cur=
    elif [[ $prev == = ]]; then
        prev=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    [[ $cur != "${COMP_WORDS[COMP_CWORD]}" || ${COMP_WORDS[COMP_CWORD - 1]} == = ]] && [[ $prev != -* ]] && return 0

    local -A kind_of=()
    while read -r name kind; do
        kind_of[$name]=$kind
    done < <(_tavstrg_options "$tool")
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        if [[ $word == = ]]; then
            continue
        elif [[ $word == -* ]]; then
            takes=${kind_of[$word]-}
            if [[ -n $takes && ${COMP_WORDS[i + 1]} != = && $((i + 1)) -lt $COMP_CWORD ]]; then
                ((i++))
            elif [[ -n $takes && $((i + 2)) -lt $COMP_CWORD ]]; then
                ((i += 2))
            fi
        elif [[ -z $command ]]; then
            command=$word
            [[ " ${commands//$'\n'/ } " == *" $command "* ]] || return 0
            while read -r name kind; do
                kind_of[$name]=$kind
            done < <(_tavstrg_options "$tool" "$command")
        elif [[ ${COMP_WORDS[i + 1]-} != = && ${COMP_WORDS[i - 1]} != = ]]; then
            given+=("$word")
        fi
    done

    if [[ $prev == -* && -n ${kind_of[$prev]-} ]]; then
        mapfile -t COMPREPLY < <(_tavstrg_argument "$tool" "${kind_of[$prev]}")
        compopt -o filenames 2>/dev/null
    elif [[ $cur == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "${!kind_of[*]}" -- "$cur")
    elif [[ -z $command ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$cur")
    else
        mapfile -t kinds < <(_tavstrg_section "$tool" Positionals "$command")
        ((${#kinds[@]})) || return 0
        i=${#given[@]}
        kind=${kinds[i < ${#kinds[@]} ? i : ${#kinds[@]} - 1]}
        ((i < ${#kinds[@]})) || [[ $kind == NAME=VALUE ]] || return 0
        mapfile -t COMPREPLY < <(_tavstrg_argument "$tool" "$kind" "${given[@]}")
        case $kind in
        NAME=VALUE) compopt -o nospace 2>/dev/null ;;
        FILE | DIR) compopt -o filenames 2>/dev/null ;;
        esac
    fi
    return 0
}

complete -F _tavstrg tavstrg
