#ifndef VELTRA_SRC_LOG_H
#define VELTRA_SRC_LOG_H

#include <qlog/qlog_write.h>

#include <cstddef>

/// How an operation names itself in its log records. The name is derived from the compiler's own
/// signature of the function, in this one place, so it can't drift from the code. An operation
/// derives it once and hands it down to what logs in its name:
///
///     VELTRA_OPERATION(operation);
///     VELTRA_LOG(operation, 3, "set llm domain:%s", domain.c_str());

namespace Veltra::detail {

template <std::size_t Size>
struct OperationName {
    char text[Size] = {};
};

/// "static bool Veltra::A::f(int)" gives "Veltra::A::f". Works on what g++, clang++ and Microsoft's
/// compiler show for functions and members, templates in the return type included.
template <std::size_t Size>
constexpr OperationName<Size> QualifiedName(const char (&signature)[Size]) {
    std::size_t begin = 0;
    std::size_t end = 0;
    for (int depth = 0; signature[end] != '\0'; ++end) {
        const char c = signature[end];
        if (c == '<') ++depth;
        if (c == '>') --depth;
        if (depth != 0) continue;
        if (c == '(') break;
        if (c == ' ' || c == '*' || c == '&') begin = end + 1;
    }
    OperationName<Size> name;
    for (std::size_t i = begin; i < end; ++i)
        name.text[i - begin] = signature[i];
    return name;
}

}  // namespace Veltra::detail

#if defined(_MSC_VER)
#define VELTRA_SIGNATURE __FUNCSIG__
#else
#define VELTRA_SIGNATURE __PRETTY_FUNCTION__
#endif

/// Defines `name`, the qualified name of the enclosing function as a zero-terminated text.
#define VELTRA_OPERATION(name)                                                            \
    static constexpr auto name##Text = ::Veltra::detail::QualifiedName(VELTRA_SIGNATURE); \
    static constexpr const char* name = name##Text.text /* NOLINT(bugprone-macro-parentheses) */

/// Writes one record of the layer in the name of `operation`. Levels: 2 detail, 3 progress and
/// success, 4 a condition worked around, 5 failure. Never call it while a lock is held: a host's
/// handler may call back in.
#define VELTRA_LOG(operation, level, format, ...)                                               \
    qlog_write(level, "Veltra", "[%s]" format "[%s(%d)]", operation __VA_OPT__(, ) __VA_ARGS__, \
               __FILE__, __LINE__)

#endif
