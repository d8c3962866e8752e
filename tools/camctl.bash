# Bash completion of camctl: the tool itself knows its commands, names and values.

_camctl() {
  local line=${COMP_LINE:0:COMP_POINT} words candidates
  read -ra words <<<"$line"
  # A new word is being begun.
  [[ $line == *[[:space:]] ]] && words+=("")
  mapfile -t candidates < <("${words[0]}" complete "${words[@]:1}" 2>/dev/null)

  if ((${#candidates[@]} == 0)); then
    compopt -o default
    return
  fi
  local typed=${words[-1]}
  # Bash takes '=' for the end of a word: what stands before it is there already.
  if [[ $typed == *=* && $COMP_WORDBREAKS == *=* ]]; then
    candidates=("${candidates[@]#"${typed%%=*}="}")
  fi
  [[ ${candidates[0]} == *= ]] && compopt -o nospace
  COMPREPLY=("${candidates[@]}")
}

complete -F _camctl camctl
