# Completion of lumetctl for bash. The program itself knows what may come next, and asks the head.

_lumetctl() {
  local line=${COMP_LINE:0:COMP_POINT} words candidates current breaks
  # Bash would cut paths with values at their equals signs, and addresses at their colons.
  read -r -a words <<< "$line"
  [[ $line == *[[:space:]] ]] && words+=("")
  words=("${words[@]//[\"\']/}")
  current=${words[-1]}
  mapfile -t candidates < <("${words[0]}" complete "${words[@]:1}" 2> /dev/null)
  COMPREPLY=("${candidates[@]}")
  # What it has cut off already must not come twice.
  for breaks in = :; do
    if [[ $COMP_WORDBREAKS == *"$breaks"* && $current == *"$breaks"* ]]; then
      COMPREPLY=("${COMPREPLY[@]#"${current%"$breaks"*}$breaks"}")
    fi
  done
  # A path, a list or an assignment goes on.
  if [[ ${#candidates[@]} -eq 1 && ${candidates[0]} == *[/=] ]]; then
    compopt -o nospace 2> /dev/null
  fi
}

complete -o default -F _lumetctl lumetctl
