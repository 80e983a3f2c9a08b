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
/// inside a JSON string (no double quote, backslash or control character).
///
/// A handle on a record. Copies share the record: a setter called on one is seen through all. A
/// moved-from handle is empty: its setters do nothing, and a query with it fails with code 1. One
/// thread at a time may use a record; `ExecuteQuery` reads it at its start and never changes it, so
/// a message may serve many queries.
class VELTRA_API CHumanMessage {
 public:
    /// Makes a record with filter type `FilterType::None` and everything else empty.
    CHumanMessage();
    CHumanMessage(const CHumanMessage& other);
    CHumanMessage(CHumanMessage&& other) noexcept;
    CHumanMessage& operator=(const CHumanMessage& other);
    CHumanMessage& operator=(CHumanMessage&& other) noexcept;
    ~CHumanMessage();

    /// Sets the key of the gateway's prompt template and replaces all elements: the name of each
    /// placeholder of the template, and the value that takes its place. Every value is screened
    /// against the phrases of `Veltra_SetsitiveWords` before anything is sent.
    void SetElements(const std::string& promptKey,
                     const std::map<std::string, std::string>& elements);

    /// Says what the gateway checks.
    void SetFilterType(const FilterType& filterType);

    /// Replaces the list of texts that the gateway checks. With `FilterType::None` it isn't sent;
    /// when it is empty, the other types send every element value in its place.
    void SetSensitiveContent(const std::vector<std::string>& sensitiveContent);

    /// Sets the identifier under which the gateway files the query ("traceId"), the one that
    /// feedback names later. Empty: each query gets a new one, which is logged and not handed back.
    void SetSessionID(const std::string& sessionId);

    /// A further owner of the record; empty for a moved-from handle. The record's type is private.
    std::shared_ptr<CHumanMessageIMP> GetPtrManager() const;

 private:
    std::shared_ptr<CHumanMessageIMP> record_;
};

}  // namespace Veltra

#endif
