#ifndef VELTRA_AIHELPER_H
#define VELTRA_AIHELPER_H

#include <Veltra/Export.h>
#include <Veltra/LLMSession.h>
#include <Veltra/Types.h>

#include <memory>
#include <string>

namespace Veltra {

struct CAiHelperIMP;

/// Creates query sessions. A handle to shared state that never changes, so any number of threads
/// may ask one helper for sessions. A moved-from helper returns none. Sessions remain valid after
/// the helper is gone. A helper may be created and used at any time, even before the layer is
/// enabled. Its functions don't block, and throw only when memory can't be allocated.
class VELTRA_API CAiHelper {
 public:
    /// Creates a helper. Both values are stored and have no effect.
    /// @param productType  the host's product; any value
    /// @param text         any text
    CAiHelper(const ProductType& productType, const std::string& text);

    /// Makes another handle to the shared state of `other`.
    /// @param other  the handle to copy; a copy of an empty handle is empty
    CAiHelper(const CAiHelper& other);

    /// Takes over the shared state of `other`.
    /// @param other  the handle to move from; empty afterwards
    CAiHelper(CAiHelper&& other) noexcept;

    /// Releases this handle's shared state and shares that of `other`.
    /// @param other  the handle to copy; if it is empty, this one becomes empty
    /// @return this handle
    CAiHelper& operator=(const CAiHelper& other);

    /// Releases this handle's shared state and takes over that of `other`.
    /// @param other  the handle to move from; empty afterwards
    /// @return this handle
    CAiHelper& operator=(CAiHelper&& other) noexcept;

    /// Releases the shared state, which is freed with its last owner.
    ~CAiHelper();

    /// Creates a new session on every call.
    /// @param type  the model family; any value gives the same kind of session
    /// @return the session, owned by the caller alone; null if the helper was moved from
    std::shared_ptr<CLLMSession> GetLLMSessionItem(const LLMType& type);

 private:
    std::shared_ptr<CAiHelperIMP> record_;
};

}  // namespace Veltra

#endif
