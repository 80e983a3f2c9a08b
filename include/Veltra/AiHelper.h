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
/// one helper for sessions. A moved-from helper hands out none. Sessions don't need the helper once
/// they are there. It may be made and used at any time, also before the layer is enabled: no
/// function of it blocks, and none throws, apart from a failure to allocate memory.
class VELTRA_API CAiHelper {
 public:
    /// Makes a helper. Both values are kept and not acted upon.
    /// @param productType  the host's product; any value
    /// @param text         any text
    CAiHelper(const ProductType& productType, const std::string& text);

    /// Makes a further handle on the record of `other`.
    /// @param other  the handle to copy; an empty one gives an empty one
    CAiHelper(const CAiHelper& other);

    /// Takes over the record of `other`.
    /// @param other  the handle to move from; empty afterwards
    CAiHelper(CAiHelper&& other) noexcept;

    /// Lets go of this handle's record and becomes a further handle on that of `other`.
    /// @param other  the handle to copy; an empty one makes this one empty
    /// @return this handle
    CAiHelper& operator=(const CAiHelper& other);

    /// Lets go of this handle's record and takes over that of `other`.
    /// @param other  the handle to move from; empty afterwards
    /// @return this handle
    CAiHelper& operator=(CAiHelper&& other) noexcept;

    /// Lets go of the record, which is freed with the last of its owners.
    ~CAiHelper();

    /// Makes a session, a new one on every call.
    /// @param type  the model family; any value gives the same kind of session
    /// @return the session, owned by the caller alone; null when the helper was moved from
    std::shared_ptr<CLLMSession> GetLLMSessionItem(const LLMType& type);

 private:
    std::shared_ptr<CAiHelperIMP> record_;
};

}  // namespace Veltra

#endif
