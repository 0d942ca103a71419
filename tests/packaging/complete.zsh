# Runs the completion for zsh outside an editor, and prints the candidates for the last word, one a line. What the shell's
# completion system would do with them is done here: match the word's begin. With DESCRIBE in the environment they stand as the
# completion describes them.
#
# usage: zsh -f complete.zsh DIRECTORY WORD...
fpath=($1 $fpath)
shift
autoload -U _tavstrg

_describe() { # TAG ARRAY [OPTION...]: "name:description" with colons in names escaped
  local candidate
  for candidate in ${(P)2}; do
    [[ -n $DESCRIBE ]] && print -r -- $candidate && continue
    candidate=${${candidate//\\:/$'\0'}%%:*}
    candidate=${candidate//$'\0'/:}
    [[ $candidate == $prefix* ]] && print -r -- $candidate
  done
}
_files() { # [-/]: files, or directories alone
  if [[ $1 == -/ ]]; then
    print -rl -- $prefix*(N/)
  else
    print -rl -- $prefix*(N)
  fi
}
compset() { # -P PATTERN: the word's begin is left alone
  prefix=${prefix#${~2}}
}

words=(tavstrg "$@")
CURRENT=$#words
prefix=$words[CURRENT]
_tavstrg
