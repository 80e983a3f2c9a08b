#include "system.h"

#include <stdlib.h>
#include <time.h>

namespace support {

void SetTimeZone(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
}

std::int64_t UtcInstantOf(std::tm& utc) {
    return timegm(&utc);
}

}  // namespace support
