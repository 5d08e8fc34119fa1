# bash completion for rynctl(1). What can be typed is asked of the tool itself.

_rynctl_options() {
  "$@" --help 2>/dev/null | sed -n '/^Options:/,/^$/p' | grep -oE -- '(^|[ ,])--?[a-z]+' | tr -d ' ,'
}

_rynctl_subcommands() {
  "$@" --help 2>/dev/null | awk '/^Subcommands:/ { inside = 1; next } inside && /^  [a-z]/ { print $1 }'
}

# Names of the messages whose delivery, or else receiver, is the given word.
_rynctl_messages() {
  "$1" list 2>/dev/null | awk -v wanted="$2" 'NR > 1 && (wanted == "" || $3 == wanted || $4 == wanted) { print $2 }'
}

_rynctl_keys() {
  "$1" describe "$2" 2>/dev/null |
    awk '/^Keys/ { inside = 1; next } /^$/ { inside = 0 } inside && $2 != "" { print $1 "=" }'
}

_rynctl() {
  local tool=${COMP_WORDS[0]} word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local command=${COMP_WORDS[1]} choices=""
  case "$previous" in
    --script | --save | -o | --output | --junit)
      mapfile -t COMPREPLY < <(compgen -f -- "$word")
      return
      ;;
    --as)
      mapfile -t COMPREPLY < <(compgen -W "plugin browser" -- "$word")
      return
      ;;
    --only)
      mapfile -t COMPREPLY < <(compgen -W "$(_rynctl_messages "$tool" "")" -- "$word")
      return
      ;;
    --speed | --ignore | --port | --timeout | --repeat | --every | --slow | -n | --count)
      COMPREPLY=()
      return
      ;;
  esac

  if ((COMP_CWORD == 1)); then
    choices="$(_rynctl_subcommands "$tool") $(_rynctl_options "$tool")"
  elif [[ $word == -* ]]; then
    if [[ $command == log && ${COMP_WORDS[2]} =~ ^(on|errors|off|clear)$ ]]; then
      choices=$(_rynctl_options "$tool" log "${COMP_WORDS[2]}")
    else
      choices=$(_rynctl_options "$tool" "$command")
    fi
  else
    case "$command" in
      report | replay)
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
        return
        ;;
      log) ((COMP_CWORD > 2)) || choices=$(_rynctl_subcommands "$tool" log) ;;
      serve) ((COMP_CWORD > 2)) || choices="browser plugin" ;;
      peek) ((COMP_CWORD > 2)) || choices="requests request-replies notifications queries query-replies" ;;
      describe | list | monitor) ((COMP_CWORD > 2)) || choices=$(_rynctl_messages "$tool" "") ;;
      listen) choices=$(_rynctl_messages "$tool" plug-in) ;;
      call | send)
        if ((COMP_CWORD > 2)); then
          choices=$(_rynctl_keys "$tool" "${COMP_WORDS[2]}")
          compopt -o nospace 2>/dev/null
        elif [[ $command == call ]]; then
          choices=$(_rynctl_messages "$tool" synchronous)
        else
          choices=$(_rynctl_messages "$tool" one-way)
        fi
        ;;
    esac
  fi
  mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$word")
}

complete -F _rynctl rynctl
