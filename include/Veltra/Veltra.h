#ifndef VELTRA_VELTRA_H
#define VELTRA_VELTRA_H

/// Everything that the library exports.

#include <Veltra/AiHelper.h>
#include <Veltra/Comment.h>
#include <Veltra/Export.h>
#include <Veltra/HumanMessage.h>
#include <Veltra/LLMSession.h>
#include <Veltra/LicenseInfo.h>
#include <Veltra/PhraseKey.h>
#include <Veltra/Service.h>
#include <Veltra/TimeConversion.h>
#include <Veltra/Types.h>

#endif
