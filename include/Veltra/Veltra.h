#ifndef VELTRA_VELTRA_H
#define VELTRA_VELTRA_H

/// @file
/// Everything that the library exports for C++, but for its two platform headers, qlog/qlog.h and
/// Oak/Net/HttpClientOptions.h. For C there is Veltra/veltra_c.h.

/// @namespace Veltra
/// The client of the gateway: login, queries, screening, feedback, time expressions.
///
/// Any function may be called from any thread at any time, at the same time as any other, except
/// while the library is being unloaded. Classes say how many threads may use an object. Nothing
/// here throws, apart from a failure to allocate memory. Functions, and
/// `CLLMSession::ExecuteQuery`, return false, without doing anything, in a child forked from a
/// process that had used the library, and in threads that still run while the process ends.

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
