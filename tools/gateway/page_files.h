#pragma once

namespace gateway {

extern const char* const kPageHtml;
extern const char* const kPageCss;
extern const char* const kPageJs;
extern const char* const kPageSvg;

}  // namespace gateway
