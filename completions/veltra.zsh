#compdef veltra
# Completion of veltra for zsh: put it as _veltra into a folder of your fpath.

_veltra() {
  local curcontext="${curcontext:-}" state line
  local -A opt_args
  local -a help output connection login

  help=('(- *)'{-h,--help}'[print a summary and exit]')
  output=(
    '--log-level[lowest level of log records on standard error]:level:(detail progress warning error none)'
    '--json[print the result as one line of JSON]'
    "${help[@]}")
  connection=(
    '--ca-file[trusted certificates in PEM form]:file:_files'
    '--proxy[proxy URL, or direct for none]:URL:(direct)'
    '--timeout-ms[time limit of each exchange]:milliseconds:'
    '--allow-plain-http[allow http to other hosts]'
    "${output[@]}")
  login=(
    '--domain[gateway to log in at]:URL:'
    '--credentials[JSON file with the key pairs]:file:_files'
    "${connection[@]}")

  _arguments -C "${help[@]}" '(- *)--version[print the version and exit]' \
    '1:subcommand:->subcommand' '*::argument:->argument'
  if [[ $state == subcommand ]]; then
    local -a subcommands
    subcommands=(
      'query:log in, run a template query, print the answer'
      "feedback:submit a user's feedback on an answer, or withdraw it"
      'probe:tell whether a gateway answers'
      'phrase-key:compute the keys of sensitive phrases'
      'time:convert a relative time expression to a local time'
      'demo:show the main functions on a local gateway'
      'gateway:run veltra-gateway')
    _describe subcommand subcommands
    return
  fi
  [[ $state == argument ]] || return

  case ${words[1]} in
    query)
      _arguments \
        '--filter[what the gateway checks for forbidden words]:number:(1 2 3 4)' \
        '*--sensitive[text to check in place of the values]:text:' \
        '--trace-id[identifier of the query]:id:' \
        '--phrase-file[file with sensitive phrases, one per line]:file:_files' \
        '--phrase-limit[most words of a phrase that is looked up]:number:' \
        '--time-limit-ms[time limit of the login and of each query]:milliseconds:' \
        '--repeat[run the query N times and print a summary]:number:' \
        '--threads[threads for --repeat]:number:' \
        "${login[@]}" '1:prompt key:' '*:NAME=VALUE:_veltra_value' ;;
    feedback)
      _arguments -C "${help[@]}" '1:action:(submit cancel)' '*::argument:->argument'
      [[ $state == argument ]] || return
      case ${words[1]} in
        submit)
          _arguments \
            '--trace-id[trace id of the query]:id:' \
            '--satisfaction[how satisfied the user is]:number:' \
            '--type[what is wrong]:number:' \
            "--comment[the user's words]:text:" \
            "--country[the user's country]:country:" \
            '*--picture[JPEG files]:*-*:picture:_files' \
            "${login[@]}" ;;
        cancel) _arguments "${login[@]}" '1:feedback id:' ;;
      esac ;;
    probe) _arguments "${connection[@]}" '1:URL:' ;;
    phrase-key)
      _arguments '--escaped[keys for values that are escaped for JSON]' "${output[@]}" '*:phrase:' ;;
    time)
      _arguments \
        '--now[reference time]:time:' \
        '--start-of-day[return the first second of a day]' \
        '--first-day[first day of the week, 0 is Sunday]:day:(0 1 2 3 4 5 6)' \
        "${output[@]}" '1:expression:' ;;
    demo)
      _arguments \
        '--gateway[the gateway]:URL:' \
        '--control[where its control endpoints are]:URL:' \
        '--credentials[JSON file with the key pairs]:file:_files' \
        "${connection[@]}" ;;
    gateway)  # the other program's own completion sees that program's command line
      words[1]=veltra-gateway
      _normal ;;
  esac
}

# NAME=@FILE takes a value from a file.
_veltra_value() {
  if compset -P '*=@'; then _files; fi
}

if [[ ${funcstack[1]:-} == _veltra ]]; then _veltra "$@"; fi
