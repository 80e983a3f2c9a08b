# shellcheck shell=bash
# Completion of veltra-gateway for bash: source it, or put it where your bash looks for completions.

_veltra_gateway() {
  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
  local offers='--address --port --tls --ca-out --key --keys-file --area-domain --storage-domain
    --upload-lifetime --templates --model-url --model --model-key-file --model-ca-file
    --model-timeout --model-concurrency --fault --ready-file --json --help'
  # The = of an option or a fault may stand as a word of its own.
  if [[ $word == = ]]; then
    word=''
    before=${COMP_WORDS[COMP_CWORD - 1]}=
  elif [[ $before == = ]]; then
    before=${COMP_WORDS[COMP_CWORD - 2]}=
  fi
  COMPREPLY=()

  case $before in
    --ca-out | --keys-file | --templates | --model-key-file | --model-ca-file | --ready-file)
      compopt -o filenames
      mapfile -t COMPREPLY < <(compgen -f -- "$word")
      return ;;
    --address) offers='127.0.0.1 ::1' ;;
    --fault) compopt -o nospace
      offers='kind= on= path=' ;;
    *on=) offers='query probe token slots feedback withdrawal push' ;;
    *kind=) offers='status delay close reset reset-in-headers reset-in-body cut-body stall
      stall-in-body garbage bad-json empty-body reject-token refuse' ;;
    *=) return ;;
    --port | --key | --area-domain | --storage-domain | --upload-lifetime | --model*) return ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$offers" -- "$word")
}
complete -F _veltra_gateway veltra-gateway
