#ifndef VELTRA_VELTRA_H
#define VELTRA_VELTRA_H

/// @file
/// Everything that the library exports for C++, except its two platform headers, qlog/qlog.h and
/// Oak/Net/HttpClientOptions.h. For C, see Veltra/veltra_c.h.

/// @namespace Veltra
/// The client of the gateway: login, queries, screening, feedback, time expressions.
///
/// Any function may be called from any thread at any time, at the same time as any other, except
/// while the library is being unloaded. Each class says how many threads may use an object. Nothing
/// here throws, except when memory can't be allocated. Functions, and `CLLMSession::ExecuteQuery`,
/// do nothing and return false in a child forked from a process that had used the library, and on
/// threads that still run while the process ends.

#include <Veltra/AiHelper.h>
#include <Veltra/Base64.h>
#include <Veltra/Call.h>
#include <Veltra/Comment.h>
#include <Veltra/Export.h>
#include <Veltra/HumanMessage.h>
#include <Veltra/JsonText.h>
#include <Veltra/LLMSession.h>
#include <Veltra/LicenseInfo.h>
#include <Veltra/PhraseKey.h>
#include <Veltra/Service.h>
#include <Veltra/TimeConversion.h>
#include <Veltra/Types.h>
#include <Veltra/Version.h>

#endif
