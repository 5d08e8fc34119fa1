# bash completion for rynctl(1)

_rynctl() {
  local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local path="" i skip=""
  for ((i = 1; i < COMP_CWORD; i++)); do
    if [[ -n $skip ]]; then
      skip=""
    elif [[ ${COMP_WORDS[i]} == --port ]]; then
      skip=1
    elif [[ ${COMP_WORDS[i]} != -* ]]; then
      path+=" ${COMP_WORDS[i]}"
    fi
  done

  local choices=""
  [[ $previous == --port ]] || case "$path" in
    "") choices="log --help --version" ;;
    " log") choices="on errors off clear --port --watch --json --help" ;;
    " log on"* | " log errors"* | " log off"* | " log clear") choices="--port --help" ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$word")
}

complete -F _rynctl rynctl
