# Bash completion of camsim: its help names the options.

_camsim() {
  local program=${COMP_WORDS[0]} typed=${COMP_WORDS[COMP_CWORD]} command=()
  [[ ${COMP_WORDS[1]} == @(run|exec) ]] && command=("${COMP_WORDS[1]}")
  local words=
  if [[ $typed == -* ]]; then
    words=$("$program" "${command[@]}" --help | grep -o -e '--[a-z-]*')
  elif ((COMP_CWORD == 1)); then
    words="run exec"
  elif [[ ${COMP_WORDS[COMP_CWORD - 1]} == --scenario ]]; then
    words="dawn dusk flicker restart three_attempts"
  fi
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$typed")
  ((${#COMPREPLY[@]} > 0)) || compopt -o default
}

complete -F _camsim camsim
