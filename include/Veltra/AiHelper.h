#ifndef VELTRA_AIHELPER_H
#define VELTRA_AIHELPER_H

#include <Veltra/Export.h>
#include <Veltra/LLMSession.h>
#include <Veltra/Types.h>

#include <memory>
#include <string>

namespace Veltra {

struct CAiHelperIMP;

/// Hands out query sessions. A handle on a record that never changes: any number of threads may ask
/// one helper for sessions. A moved-from helper hands out none.
class VELTRA_API CAiHelper {
 public:
    /// Both values are kept and not acted upon.
    CAiHelper(const ProductType& productType, const std::string& text);
    CAiHelper(const CAiHelper& other);
    CAiHelper(CAiHelper&& other) noexcept;
    CAiHelper& operator=(const CAiHelper& other);
    CAiHelper& operator=(CAiHelper&& other) noexcept;
    ~CAiHelper();

    /// A new session on every call, whatever `type` is; empty when the helper was moved from.
    std::shared_ptr<CLLMSession> GetLLMSessionItem(const LLMType& type);

 private:
    std::shared_ptr<CAiHelperIMP> record_;
};

}  // namespace Veltra

#endif
