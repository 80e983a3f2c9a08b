#!/usr/bin/env bash
# The dynamic symbol table, or the export table of a DLL, shows the exported functions and classes and
# nothing else:
#     check_exports.sh LIBRARY
set -euo pipefail

# Without the mark that libstdc++ gives to functions which return a text.
exports() {
  if [[ "$1" == *.dll ]]; then
    x86_64-w64-mingw32-objdump --private-headers "$1" \
      | sed -n '/^\[Ordinal\/Name Pointer\] Table/,/^$/s/^.*\] *\([^] ]*\)$/\1/p' | grep -v Table | c++filt
  else
    nm --dynamic --defined-only --demangle "$1" | cut -d' ' -f3-
  fi | sed 's/\[abi:cxx11\]//'
}

shown=$(exports "$1")
classes='CAiHelper|CCallControl|CCallReport|CCallScope|CHumanMessage|CLicenseInfo|CLLMSession|CLLMMessage|LLMComment'
allowed="^(Veltra::(Veltra_[A-Za-z]+|ConvertTime|SetFirstDayOfWeek)\(.*\)"
allowed+="|Veltra::($classes)::.*"
allowed+="|(typeinfo|typeinfo name|vtable) for Veltra::(CLLMSession|CLLMMessage)"
allowed+="|Oak::Net::SetHttpClientOptions\(.*\)|qlog_set_handler|veltra_[a-z_]+)$"

others=$(grep -vE "$allowed" <<<"$shown" || true)
if [ -n "$others" ]; then
  printf 'Exported, but not meant to be:\n%s\n' "$others"
  exit 1
fi
needed=(
  Veltra::Veltra_{Enable,Disable,IsEnable,Unit,IsLLMServiceValid,SetDomain,IsDomainValid}
  Veltra::Veltra_{Authentication,SetsitiveWords,SubmitComments,CancleComments}
  Veltra::Veltra_{LastCall,CancelAll,Logout,SetBodyEcho,GetVersion}
  Veltra::ConvertTime Veltra::SetFirstDayOfWeek
  Veltra::CCallControl::{CCallControl,~CCallControl,operator=,SetTimeLimit,Cancel,IsCancelled,Reset}
  Veltra::CCallScope::{CCallScope,~CCallScope}
  Veltra::CCallReport::{CCallReport,~CCallReport,operator=,Outcome,Retryable,Attempts,HttpStatus}
  Veltra::CCallReport::{GatewayCode,GatewayMessage,Detail,TraceId,Milliseconds}
  Veltra::CAiHelper::{CAiHelper,~CAiHelper,operator=,GetLLMSessionItem}
  Veltra::CHumanMessage::{CHumanMessage,~CHumanMessage,operator=,SetElements,SetFilterType}
  Veltra::CHumanMessage::{SetSensitiveContent,SetSessionID,GetPtrManager}
  Veltra::CLicenseInfo::{CLicenseInfo,~CLicenseInfo,operator=,SetLicenseKey}
  Veltra::CLicenseInfo::{SetProductVersion,GetPtrManager}
  Veltra::CLLMSession::{CLLMSession,operator=} Veltra::CLLMMessage::{CLLMMessage,operator=}
  Veltra::LLMComment::{LLMComment,~LLMComment,operator=,SetSatisfactionLevel,SetLLMErrType}
  Veltra::LLMComment::{SetComments,SetPictures,SetCountry,GetManagerPtr}
  Oak::Net::SetHttpClientOptions
)
for name in "${needed[@]}"; do
  grep -qF "$name(" <<<"$shown" || { echo "missing: $name"; exit 1; }
done
# What a header for C declares.
root=$(dirname "${BASH_SOURCE[0]}")/..
for name in qlog_set_handler $(grep -oE 'veltra_[a-z_]+\(' "$root/include/Veltra/veltra_c.h" | tr -d '('); do
  grep -qx "$name" <<<"$shown" || { echo "missing: $name"; exit 1; }
done
printf '%s symbols, all meant\n' "$(wc -l <<<"$shown")"
