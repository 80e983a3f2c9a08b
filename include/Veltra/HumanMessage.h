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

/// The input of one query: prompt template, values, checks.
///
/// All texts are UTF-8 and go into the request as they are, without escaping: they must need none
/// inside a JSON string (no double quote, backslash or control character). `EscapeJson` makes any
/// text so.
///
/// A handle on a record. Copies share the record: a setter called on one is seen through all. A
/// moved-from handle is empty: its setters do nothing, and a query with it fails with code 1. One
/// thread at a time may use a record; `ExecuteQuery` reads it at its start and never changes it, so
/// a message may serve many queries. It may be made and filled at any time, also before the layer
/// is enabled: no function of it blocks, and none throws, apart from a failure to allocate memory.
class VELTRA_API CHumanMessage {
 public:
    /// Makes a record with filter type `FilterType::None` and everything else empty.
    CHumanMessage();

    /// Makes a further handle on the record of `other`.
    /// @param other  the handle to copy; an empty one gives an empty one
    CHumanMessage(const CHumanMessage& other);

    /// Takes over the record of `other`.
    /// @param other  the handle to move from; empty afterwards
    CHumanMessage(CHumanMessage&& other) noexcept;

    /// Lets go of this handle's record and becomes a further handle on that of `other`.
    /// @param other  the handle to copy; an empty one makes this one empty
    /// @return this handle
    CHumanMessage& operator=(const CHumanMessage& other);

    /// Lets go of this handle's record and takes over that of `other`.
    /// @param other  the handle to move from; empty afterwards
    /// @return this handle
    CHumanMessage& operator=(CHumanMessage&& other) noexcept;

    /// Lets go of the record, which is freed with the last of its owners.
    ~CHumanMessage();

    /// Sets the prompt template and replaces all elements. Every value is screened against the
    /// phrases of `Veltra_SetsitiveWords` before anything is sent; names and key are not.
    /// @param promptKey  the key of the gateway's template
    /// @param elements   the name of each placeholder of the template, and the value that takes its
    ///                   place
    void SetElements(const std::string& promptKey,
                     const std::map<std::string, std::string>& elements);

    /// Says what the gateway checks for forbidden words.
    /// @param filterType  one of the named values; any other acts like `FilterType::CheckInput`
    void SetFilterType(const FilterType& filterType);

    /// Replaces the list of texts that the gateway checks. With `FilterType::None` it isn't sent;
    /// when it is empty, the other types send every element value in its place.
    /// @param sensitiveContent  the texts, which are not screened by the layer itself
    void SetSensitiveContent(const std::vector<std::string>& sensitiveContent);

    /// Sets the identifier under which the gateway files the query ("traceId"), the one that
    /// feedback names later.
    /// @param sessionId  the identifier, best one for each query. Empty: each query gets a new one,
    ///                   which is logged (level 4) and stands in `CCallReport::TraceId`
    void SetSessionID(const std::string& sessionId);

    /// For the library's own use: the record's type is private.
    /// @return a further owner of the record; null for an empty handle
    std::shared_ptr<CHumanMessageIMP> GetPtrManager() const;

 private:
    std::shared_ptr<CHumanMessageIMP> record_;
};

}  // namespace Veltra

#endif
