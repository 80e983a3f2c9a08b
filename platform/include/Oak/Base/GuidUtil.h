#ifndef OAK_BASE_GUIDUTIL_H
#define OAK_BASE_GUIDUTIL_H

#include <string>

namespace Oak::Base {

/// Identifiers as text.
class GuidUtil {
 public:
    /// A new random identifier (RFC 4122, version 4) as 36 lower-case characters, different on
    /// every call. Any thread may call it.
    static std::string CreateGuid();
};

}  // namespace Oak::Base

#endif
