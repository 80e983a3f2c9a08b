#ifndef VELTRA_HUMANMESSAGE_H
#define VELTRA_HUMANMESSAGE_H

#include <Veltra/Export.h>
#include <Veltra/Types.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Veltra {

struct CHumanMessageIMP;

/// The input of a query: prompt template, values, checks.
///
/// All texts are UTF-8 and go into the request unescaped, so they must need no escaping inside a
/// JSON string (no double quote, backslash or control character). `EscapeJson` prepares any text.
///
/// A handle to shared state. Copies share it: a setter called on one affects all. A moved-from
/// handle is empty: its setters do nothing, and a query with it fails with code 1. One thread at a
/// time may use the shared state. `ExecuteQuery` reads it at the start and never changes it, so one
/// message may serve many queries. A message may be created and filled at any time, even before the
/// layer is enabled. Its functions don't block, and throw only when memory can't be allocated.
class VELTRA_API CHumanMessage {
 public:
    /// Creates a message with filter type `FilterType::None` and everything else empty.
    CHumanMessage();

    /// Makes another handle to the shared state of `other`.
    /// @param other  the handle to copy; a copy of an empty handle is empty
    CHumanMessage(const CHumanMessage& other);

    /// Takes over the shared state of `other`.
    /// @param other  the handle to move from; empty afterwards
    CHumanMessage(CHumanMessage&& other) noexcept;

    /// Releases this handle's shared state and shares that of `other`.
    /// @param other  the handle to copy; if it is empty, this one becomes empty
    /// @return this handle
    CHumanMessage& operator=(const CHumanMessage& other);

    /// Releases this handle's shared state and takes over that of `other`.
    /// @param other  the handle to move from; empty afterwards
    /// @return this handle
    CHumanMessage& operator=(CHumanMessage&& other) noexcept;

    /// Releases the shared state, which is freed with its last owner.
    ~CHumanMessage();

    /// Sets the prompt template and replaces all elements. Every value is screened against the
    /// phrases of `Veltra_SetsitiveWords` before anything is sent; names and the key are not.
    /// @param promptKey  the key of the gateway's template
    /// @param elements   the name of each placeholder in the template, and the value to put there
    void SetElements(const std::string& promptKey,
                     const std::map<std::string, std::string>& elements);

    /// Sets what the gateway checks for forbidden words.
    /// @param filterType  one of the named values; any other acts like `FilterType::CheckInput`
    void SetFilterType(const FilterType& filterType);

    /// Replaces the list of texts that the gateway checks. With `FilterType::None` the list is not
    /// sent. With the other types, an empty list means that all element values are sent for the
    /// check.
    /// @param sensitiveContent  the texts, which are not screened by the layer itself
    void SetSensitiveContent(const std::vector<std::string>& sensitiveContent);

    /// Sets the identifier under which the gateway files the query ("traceId"), and by which
    /// feedback refers to it later.
    /// @param sessionId  the identifier, preferably a different one for each query. If it is empty,
    ///                   each query gets a new one, which is logged at level 4 and reported by
    ///                   `CCallReport::TraceId`
    void SetSessionID(const std::string& sessionId);

    /// For the library's own use: the type of the shared state is private.
    /// @return another owner of the shared state; null for an empty handle
    std::shared_ptr<CHumanMessageIMP> GetPtrManager() const;

 private:
    std::shared_ptr<CHumanMessageIMP> record_;
};

}  // namespace Veltra

#endif
