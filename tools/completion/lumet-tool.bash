# Completion for bash of a program that tells its commands and options by --help alone.

_lumet_tool() {
  local program=$1 current=$2 previous=$3 command= help
  ((COMP_CWORD == 1)) || [[ ${COMP_WORDS[1]} == -* ]] || command=${COMP_WORDS[1]}
  help=$("$program" $command --help 2> /dev/null)
  # Choices of an option stand in braces after it, commands under a heading of their own.
  local choices options commands
  [[ $previous != --* ]] ||
    choices=$(grep -o -- "^  .*$previous [A-Z]*:{.*}" <<< "$help" | grep -o '[^{]*}$')
  options=$(grep -o -- '^  [-a-zA-Z,]*' <<< "$help" | tr , '\n' | grep -o -- '--.*')
  commands=$(sed -n '/^Subcommands:/,$ s/^  \([a-z]\+\) .*/\1/p' <<< "$help")
  choices=${choices%\}}
  if [[ $choices ]]; then
    mapfile -t COMPREPLY < <(compgen -W "${choices//,/ }" -- "$current")
  elif [[ $current == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
  elif ((COMP_CWORD == 1)); then
    mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$current")
  fi
}

complete -o default -F _lumet_tool lumet-bench lumet-plot lumet-rec lumet-view
