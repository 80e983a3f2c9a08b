# shellcheck shell=bash
# Completion of veltra for bash: source it, or put it where your bash looks for completions.

_veltra() {
  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
  local connection='--ca-file --proxy --timeout-ms --allow-plain-http'
  local output='--log-level --json --help'
  local login="--domain --credentials $connection $output"
  local command=${COMP_WORDS[1]:-} offers=''
  COMPREPLY=()

  # The other program's own completion, when it is there, sees that program's command line.
  if [[ $command == gateway ]] && ((COMP_CWORD > 1)); then
    declare -F _veltra_gateway >/dev/null ||
      { declare -F _completion_loader >/dev/null && _completion_loader veltra-gateway; }
    local COMP_CWORD=$((COMP_CWORD - 1)) COMP_WORDS=(veltra-gateway "${COMP_WORDS[@]:2}")
    if declare -F _veltra_gateway >/dev/null; then _veltra_gateway; fi
    return
  fi

  case $before in
    --credentials | --ca-file | --phrase-file | --picture | =@)
      compopt -o filenames
      mapfile -t COMPREPLY < <(compgen -f -- "$word")
      return ;;
    --log-level) offers='detail progress warning error none' ;;
    --filter) offers='1 2 3 4' ;;
    --first-day) offers='0 1 2 3 4 5 6' ;;
    --proxy) offers='direct' ;;
    --domain | --gateway | --control | --timeout-ms | --time-limit-ms | --sensitive | --trace-id | --phrase-limit | \
      --repeat | --threads | \
      --satisfaction | --type | --comment | --country | --now) return ;;
    *)
      if ((COMP_CWORD == 1)); then command=''; fi
      case $command in
        '') offers='query feedback probe phrase-key time demo gateway --help --version' ;;
        query) offers="--filter --sensitive --trace-id --phrase-file --phrase-limit
          --time-limit-ms --repeat --threads $login" ;;
        feedback)
          case ${COMP_WORDS[2]:-} in
            submit) offers="--trace-id --satisfaction --type --comment --country --picture $login" ;;
            cancel) offers=$login ;;
          esac
          if ((COMP_CWORD == 2)); then offers='submit cancel --help'; fi ;;
        probe) offers="$connection $output" ;;
        phrase-key) offers="--escaped $output" ;;
        time) offers="--now --start-of-day --first-day $output" ;;
        demo) offers="--gateway --control --credentials $connection $output" ;;
      esac ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$offers" -- "$word")
}
complete -F _veltra veltra
