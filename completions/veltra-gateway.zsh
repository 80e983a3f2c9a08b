#compdef veltra-gateway
# Completion of veltra-gateway for zsh: put it as _veltra-gateway into a folder of your fpath.

_veltra_gateway() {
  _arguments \
    '(- *)'{-h,--help}'[print a summary and exit]' \
    '--address[numeric address to listen on]:address:(127.0.0.1 \:\:1)' \
    '--port[port; 0 is picked by the system]:port:' \
    '--tls[serve HTTPS]' \
    '--ca-out[file to write the authority to]:file:_files' \
    '*--key[key pair to accept]:APP\:SECRET:' \
    '--keys-file[file with an APP\:SECRET on each line]:file:_files' \
    '--area-domain[base URL that token answers send clients to]:URL:' \
    '--storage-domain[base URL that upload URLs begin with]:URL:' \
    '--upload-lifetime[how long an upload URL is valid]:seconds:' \
    '--templates[JSON file with prompt templates]:file:_files' \
    '--model-url[URL of a model server]:URL:' \
    '--model[name of the model]:name:' \
    "--model-key-file[file with the server's key]:file:_files" \
    "--model-ca-file[authorities to trust for the server's certificate]:file:_files" \
    '--model-timeout[time limit of a query]:seconds:' \
    '--model-concurrency[most requests that the model gets at a time]:number:' \
    '*--fault[fault in force from the start]:fault:_veltra_gateway_fault' \
    '--ready-file[file to create once the gateway listens]:file:_files' \
    '--json[print where it listens as one line of JSON]'
}

_veltra_gateway_fault() {
  _values -s , fault \
    'kind[what happens]:kind:(status delay close reset reset-in-headers reset-in-body cut-body
      stall stall-in-body garbage bad-json empty-body reject-token refuse)' \
    'on[kind of request]:request:(query probe token slots feedback withdrawal push)' \
    'path[prefix of the paths]:path:' \
    'times[number of requests]:number:' \
    'number[status, milliseconds or bytes]:number:' \
    'code[errorCode of a refusal]:code:' \
    'text[body, message or noise]:text:'
}

if [[ ${funcstack[1]:-} == _veltra-gateway ]]; then _veltra_gateway "$@"; fi
