#include "page.h"

#include "page_files.h"

#include <string>

namespace gateway {
namespace {

struct File {
    std::string_view path;
    const char* type;
    const char* text;
};

// Nothing but these files runs or is loaded, no text becomes markup, and no other page shows this
// one in a frame. Bodies of requests are anybody's text.
constexpr const char* kPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'; "
    "require-trusted-types-for 'script'; trusted-types 'none'";

}  // namespace

std::optional<Answer> pageFile(std::string_view path) {
    const File files[] = {
        {"/", "text/html; charset=utf-8", kPageHtml},
        {"/control/page.css", "text/css; charset=utf-8", kPageCss},
        {"/control/page.js", "text/javascript; charset=utf-8", kPageJs},
        {"/control/page.svg", "image/svg+xml", kPageSvg},
    };
    for (const auto& file : files) {
        if (file.path != path) continue;
        Answer answer;
        answer.body = file.text;
        answer.headers = {{"Content-Type", file.type}, {"Content-Security-Policy", kPolicy}};
        return answer;
    }
    return std::nullopt;
}

}  // namespace gateway
