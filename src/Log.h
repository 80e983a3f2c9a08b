#ifndef VELTRA_SRC_LOG_H
#define VELTRA_SRC_LOG_H

#include <qlog/qlog_write.h>

#include <cstddef>
#include <string_view>

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

/// What follows a parameter list, which `text` begins with, and the const after it if a name goes
/// on behind that.
constexpr std::string_view AfterParameters(std::string_view text) {
    std::size_t end = 0;
    int depth = 0;
    do {
        if (text[end] == '(') ++depth;
        if (text[end] == ')') --depth;
        ++end;
    } while (depth > 0 && end < text.size());
    text.remove_prefix(end);
    constexpr std::string_view constant = " const";
    if (text.starts_with(" const::")) text.remove_prefix(constant.size());
    return text;
}

/// "static bool Veltra::A::f(int)" gives "Veltra::A::f". A function object local to a function is
/// named by its class: "bool Veltra::A::f(int)::G::operator()(int) const" gives "Veltra::A::f::G".
/// Works on what g++, clang++ and Microsoft's compiler show for functions and members, templates in
/// the return type included.
template <std::size_t Size>
constexpr OperationName<Size> QualifiedName(const char (&signature)[Size]) {
    constexpr std::string_view callOperator = "::operator";
    OperationName<Size> name;
    std::size_t length = 0;
    const auto isCallOperator = [&] {
        return std::string_view(name.text, length).ends_with(callOperator);
    };
    int depth = 0;
    for (std::string_view rest(signature, Size - 1); !rest.empty();) {
        const char c = rest.front();
        if (depth == 0 && c == '(') {
            rest = AfterParameters(rest);
            if (rest.starts_with("::")) continue;
            break;
        }
        rest.remove_prefix(1);
        if (c == '>') --depth;
        if (depth == 0 && (c == ' ' || c == '*' || c == '&')) {
            if (!isCallOperator()) length = 0;  // that was the type; but "operator ()" may be split
        } else if (depth == 0 && c != '<' && c != '>') {
            name.text[length++] = c;
        }
        if (c == '<') ++depth;
    }
    if (isCallOperator()) length -= callOperator.size();
    for (; length < Size; ++length)
        name.text[length] = '\0';
    return name;
}

}  // namespace Veltra::detail

#if defined(_MSC_VER)
#define VELTRA_SIGNATURE __FUNCSIG__
#else
#define VELTRA_SIGNATURE __PRETTY_FUNCTION__
#endif

/// Defines `name`, the qualified name of the enclosing function as a zero-terminated text.
// NOLINTBEGIN(bugprone-macro-parentheses): a name that is declared takes none
#define VELTRA_OPERATION(name)                                                            \
    static constexpr auto name##Text = ::Veltra::detail::QualifiedName(VELTRA_SIGNATURE); \
    static constexpr const char* name = name##Text.text
// NOLINTEND(bugprone-macro-parentheses)

/// Writes one record of the layer in the name of `operation`. Levels: 2 detail, 3 progress and
/// success, 4 a condition worked around, 5 failure. Never call it while a lock is held: a host's
/// handler may call back in.
#define VELTRA_LOG(operation, level, format, ...)                                               \
    qlog_write(level, "Veltra", "[%s]" format "[%s(%d)]", operation __VA_OPT__(, ) __VA_ARGS__, \
               __FILE__, __LINE__)

#endif
