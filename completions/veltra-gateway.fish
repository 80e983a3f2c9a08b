# Completion of veltra-gateway for fish: put it into a folder of your fish_complete_path.

# The parts that a fault may have, each appended to those that are already typed.
function __veltra_gateway_faults
    set -l before (string match -r '^(?:--fault=)?(.*,)' -- (commandline -ct))[2]
    test -n "$before"; or set before ''
    printf '%s\n' $before{number,code,path,times,text}= \
        $before'on='{query,probe,token,slots,feedback,withdrawal,push} \
        $before'kind='{status,delay,close,reset,reset-in-headers,reset-in-body,cut-body,stall} \
        $before'kind='{stall-in-body,garbage,bad-json,empty-body,reject-token,refuse}
end

complete -c veltra-gateway -f
complete -c veltra-gateway -s h -l help -d 'Print a summary and exit'
complete -c veltra-gateway -l address -x -a '127.0.0.1 ::1' -d 'Numeric address to listen on'
complete -c veltra-gateway -l port -x -d 'Port; 0 is picked by the system'
complete -c veltra-gateway -l tls -d 'Serve HTTPS'
complete -c veltra-gateway -l ca-out -r -F -d 'File to write the authority to'
complete -c veltra-gateway -l key -x -d 'Key pair APP:SECRET to accept'
complete -c veltra-gateway -l keys-file -r -F -d 'File with key pairs'
complete -c veltra-gateway -l area-domain -x -d 'Base URL that token answers send clients to'
complete -c veltra-gateway -l storage-domain -x -d 'Base URL that upload URLs begin with'
complete -c veltra-gateway -l upload-lifetime -x -d 'How long an upload URL is valid, in seconds'
complete -c veltra-gateway -l templates -r -F -d 'File with prompt templates'
complete -c veltra-gateway -l model-url -x -d 'URL of a model server'
complete -c veltra-gateway -l model -x -d 'Name of the model'
complete -c veltra-gateway -l model-key-file -r -F -d 'File with the server\'s key'
complete -c veltra-gateway -l model-ca-file -r -F -d 'Authorities to trust for its certificate'
complete -c veltra-gateway -l model-timeout -x -d 'Time limit of a query, in seconds'
complete -c veltra-gateway -l model-concurrency -x -d 'Most requests that the model gets at a time'
complete -c veltra-gateway -l fault -x -a '(__veltra_gateway_faults)' -d 'Fault in force from the start'
complete -c veltra-gateway -l ready-file -r -F -d 'File to create once the gateway listens'
complete -c veltra-gateway -l json -d 'Print where it listens as JSON'
