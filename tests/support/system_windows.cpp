#include "system.h"

#include <stdlib.h>
#include <time.h>

namespace support {

void SetTimeZone(const char* zone) {
    _putenv_s("TZ", zone);
    _tzset();
}

std::int64_t UtcInstantOf(std::tm& utc) {
    return _mkgmtime64(&utc);
}

}  // namespace support
