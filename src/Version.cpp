#include <Veltra/Version.h>

namespace Veltra {

const char* Veltra_GetVersion() {
    return VELTRA_VERSION;
}

}  // namespace Veltra
