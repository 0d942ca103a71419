#!/usr/bin/env bash
# Completion offers the commands, options, classes and methods of the tool. The expected ones come from tavstrg --help-all, which
# completion does not read.
#
# usage: completion_test.sh BUILD_DIRECTORY
# shellcheck source=tests/packaging/common.sh
. "$(dirname "$0")/common.sh"
PATH=$build/bin:$PATH
completions=$source_directory/packaging/completion

# In this help each command has a line of its own, followed by its options, indented.
all=$(tavstrg --help-all)
commands=$(sed -nE '/^Subcommands:/,$s/^([a-z][a-z-]*)$/\1/p' <<<"$all" | sort)
globals=$(sed -nE '/^Options:/,/^Subcommands:/s/^  (-[^ ]+).*/\1/p' <<<"$all" | tr ',' '\n' | sort)
[ "$(wc -l <<<"$commands")" -ge 5 ] || fail "commands in the help of all: $commands"
options_of() { # COMMAND: with the options of all commands
    sed -nE "/^$1\$/,/^\$/s/^    (-[^ ]+).*/\\1/p" <<<"$all" | tr ',' '\n' | cat - <(echo "$globals") | sort -u
}
positional_of() { # COMMAND: the kind of its first argument
    sed -nE "/^$1\$/,/^\$/s/^    ([A-Z][^ ]*).*/\\1/p" <<<"$all" | sed -n 1p
}
classes=$(tavstrg classes | sed -nE 's/^TAV_Storage([A-Za-z]+).*/\1/p' | sort)
same "number of classes" 13 "$(wc -l <<<"$classes")"

# shellcheck source=packaging/completion/tavstrg.bash
. "$completions/tavstrg.bash"
in_bash() { # WORD...: candidates for the last word; "=" is a separate word, as in bash
    COMP_WORDS=(tavstrg "$@")
    COMP_CWORD=$#
    COMPREPLY=()
    _tavstrg
    printf '%s\n' "${COMPREPLY[@]}" | sort
}
in_zsh() {
    zsh -f "$source_directory/tests/packaging/complete.zsh" "$completions" "$@" | sort
}
in_zsh_described() {
    DESCRIBE=1 in_zsh -
}
in_bash_without_tool() {
    COMP_WORDS=("$work/tavstrg" "")
    COMP_CWORD=1
    COMPREPLY=()
    _tavstrg
    printf '%s' "${COMPREPLY[*]}"
}
begins_with() { grep -E "^$1" || true; }

cd "$source_directory" # for file names
for shell in in_bash in_zsh; do
    same "$shell: commands" "$commands" "$($shell "")"
    same "$shell: options" "$globals" "$($shell -)"
    same "$shell: no command" "" "$($shell nonsense "")"
    for command in $commands; do
        same "$shell: options of $command" "$(options_of "$command")" "$($shell "$command" -)"
        case $(positional_of "$command") in
        CLASS) same "$shell: classes for $command" "$classes" "$($shell --json "$command" "")" ;;
        FILE) same "$shell: files for $command" "README.md" "$($shell "$command" READ)" ;;
        ID | "") same "$shell: nothing for $command" "" "$($shell "$command" "")" ;;
        *) fail "no test for the arguments of $command" ;;
        esac
    done
    same "$shell: a column" "SERIAL" "$($shell disks --sort SER)"
    same "$shell: some classes" "$(begins_with T <<<"$classes")" "$($shell get T)"
    same "$shell: full names of classes" "TAV_StorageTape" "$($shell get TAV_StorageTa)"
    same "$shell: no class twice" "" "$($shell get HardDisk "")"
    same "$shell: methods" "SetHardDiskSmartMode
SetMonitorCycle" "$($shell call config "")"
    same "$shell: a method's argument" "MonitorCycle=" "$($shell call TAV_StorageConfig setmonitorcycle M)"
    same "$shell: file behind its option" "README.md" "$($shell show --machine READ)"
    same "$shell: values of an option" "always" "$($shell show --color al)"
    same "$shell: directories behind their option" "docs" "$($shell check --root doc)"
    same "$shell: command behind an option with its value" "show" "$($shell --machine x.json --json sh)"
done
same "bash: file behind a sign" "README.md" "$(in_bash --machine = READ)"
same "bash: command behind an option with a sign" "show" "$(in_bash --machine = x.json sh)"
same "bash: no candidates for a value" "" "$(in_bash call Config SetMonitorCycle MonitorCycle = "")"
same "zsh: description of an option" "--color:When to colour" \
    "$(in_zsh_described | sed -nE 's/^(--color:When to colour).*/\1/p')"
same "zsh: file behind a sign" "README.md" "$(in_zsh --machine=READ)"
same "bash: another column" "NODE,SERIAL" "$(in_bash disks -o NODE,SER)"
same "zsh: another column" "SERIAL" "$(in_zsh disks -o NODE,SER)"
same "bash: missing tool" "" "$(in_bash_without_tool)"
zsh -n "$completions/_tavstrg" || fail "syntax of the completion for zsh"
