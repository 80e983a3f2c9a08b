#ifndef VELTRA_SRC_RECORDS_H
#define VELTRA_SRC_RECORDS_H

#include "AccessKeys.h"

#include <Veltra/Comment.h>
#include <Veltra/LicenseInfo.h>
#include <Veltra/Types.h>

#include <map>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

/// The records behind the exported handles. Plain data: the handles guard the access, and one
/// thread at a time uses a record.

namespace Veltra {

struct CLicenseInfoIMP {
    std::string productVersion;
    std::string keyText;
    AccessKeys accessKeys;
};

struct CHumanMessageIMP {
    FilterType filterType = FilterType::None;
    std::string promptKey;
    std::map<std::string, std::string> elements;
    std::vector<std::string> sensitiveContent;
    std::string sessionId;
};

struct CAiHelperIMP {
    CAiHelperIMP(ProductType product, std::string given)
        : productType(product), text(std::move(given)) {}

    ProductType productType;
    std::string text;
};

struct LLMCommentIMP {
    explicit LLMCommentIMP(std::string id) : traceId(std::move(id)) {}

    std::string traceId;
    std::string comments;
    std::unordered_set<std::string> pictures;
    SatisfactionLevel satisfactionLevel = SatisfactionLevel::Default;
    LLMErrType llmErrType = LLMErrType::Default;
    std::string country = "unKnown";
};

}  // namespace Veltra

#endif
