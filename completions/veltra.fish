# Completion of veltra for fish: put it into a folder of your fish_complete_path.

# Whether the subcommand on the command line is one of the arguments: "none" if there is none yet,
# "feedback" if it has neither "submit" nor "cancel" yet.
function __veltra_at
    set -l words (commandline -opc)
    set -l subcommand $words[2]
    if test "$subcommand" = feedback -a (count $words) -gt 2
        set subcommand $words[3]
    end
    test -n "$subcommand"; or set subcommand none
    contains -- $subcommand $argv
end

# The other program's own completion sees that program's command line.
function __veltra_gateway
    set -l words (string escape -- (commandline -opc))
    complete -C (string join ' ' -- veltra-gateway $words[3..-1] (commandline -ct))
end

complete -c veltra -f
complete -c veltra -n '__veltra_at none' -l version -d 'Print the version and exit'
complete -c veltra -n '__veltra_at none' -a query -d 'Log in, run a template query, print the answer'
complete -c veltra -n '__veltra_at none' -a feedback -d 'Submit feedback on an answer, or withdraw it'
complete -c veltra -n '__veltra_at none' -a probe -d 'Tell whether a gateway answers'
complete -c veltra -n '__veltra_at none' -a phrase-key -d 'Compute the keys of sensitive phrases'
complete -c veltra -n '__veltra_at none' -a time -d 'Convert a relative time expression'
complete -c veltra -n '__veltra_at none' -a demo -d 'Show the main functions on a local gateway'
complete -c veltra -n '__veltra_at none' -a gateway -d 'Run veltra-gateway'
complete -c veltra -n '__veltra_at feedback' -a submit -d 'Log in, submit feedback, print its id'
complete -c veltra -n '__veltra_at feedback' -a cancel -d 'Log in, withdraw feedback, print its id'
complete -c veltra -n '__veltra_at gateway' -a '(__veltra_gateway)'

# Of query
complete -c veltra -n '__veltra_at query' -l filter -x -a '1 2 3 4' -d 'What the gateway checks'
complete -c veltra -n '__veltra_at query' -l sensitive -x -d 'Text to check in place of the values'
complete -c veltra -n '__veltra_at query' -l phrase-file -r -F -d 'File with sensitive phrases'
complete -c veltra -n '__veltra_at query' -l phrase-limit -x -d 'Most words of a phrase'
complete -c veltra -n '__veltra_at query' -l time-limit-ms -x -d 'Time limit in milliseconds'
complete -c veltra -n '__veltra_at query' -l repeat -x -d 'Run the query N times'
complete -c veltra -n '__veltra_at query' -l threads -x -d 'Threads for --repeat'

# Of feedback
complete -c veltra -n '__veltra_at query submit' -l trace-id -x -d 'Identifier of the query'
complete -c veltra -n '__veltra_at submit' -l satisfaction -x -d 'How satisfied the user is'
complete -c veltra -n '__veltra_at submit' -l type -x -d 'What is wrong'
complete -c veltra -n '__veltra_at submit' -l comment -x -d 'The user\'s words'
complete -c veltra -n '__veltra_at submit' -l country -x -d 'The user\'s country'
complete -c veltra -n '__veltra_at submit' -l picture -r -F -d 'JPEG files'

# Of phrase-key, time and demo
complete -c veltra -n '__veltra_at phrase-key' -l escaped -d 'Keys for values that are escaped'
complete -c veltra -n '__veltra_at time' -l now -x -d 'Reference time'
complete -c veltra -n '__veltra_at time' -l start-of-day -d 'Return the first second of a day'
complete -c veltra -n '__veltra_at time' -l first-day -x -a '(seq 0 6)' -d 'First day of the week'
complete -c veltra -n '__veltra_at demo' -l gateway -x -d 'The gateway'
complete -c veltra -n '__veltra_at demo' -l control -x -d 'Where its control endpoints are'

# Of several
complete -c veltra -n '__veltra_at query submit cancel' -l domain -x -d 'Gateway to log in at'
complete -c veltra -n '__veltra_at query submit cancel demo' -l credentials -r -F -d 'Key pairs'
complete -c veltra -n '__veltra_at query submit cancel probe demo' -l ca-file -r -F -d 'Certificates'
complete -c veltra -n '__veltra_at query submit cancel probe demo' -l proxy -x -a direct -d 'Proxy URL'
complete -c veltra -n '__veltra_at query submit cancel probe demo' -l timeout-ms -x \
    -d 'Time limit of each exchange'
complete -c veltra -n '__veltra_at query submit cancel probe demo' -l allow-plain-http \
    -d 'Allow http to other hosts'
complete -c veltra -n '__veltra_at query submit cancel probe demo phrase-key time' -l log-level -x \
    -a 'detail progress warning error none' -d 'Lowest level of log records'
complete -c veltra -n '__veltra_at query submit cancel probe demo phrase-key time' -l json \
    -d 'Print the result as JSON'
complete -c veltra -n 'not __veltra_at gateway' -s h -l help -d 'Print a summary and exit'
