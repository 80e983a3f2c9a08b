#ifndef VELTRA_COMMENT_H
#define VELTRA_COMMENT_H

#include <Veltra/Export.h>

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_set>

namespace Veltra {

/// How satisfied a user is with an answer, as numbered by the gateway's operators. Any value is
/// sent unchanged; cast the number you were given.
enum class SatisfactionLevel : std::int32_t {
    Default = 0  ///< the initial value
};

/// What is wrong with an answer, as numbered by the gateway's operators. Any value is sent
/// unchanged; cast the number you were given.
enum class LLMErrType : std::int32_t {
    Default = 0  ///< the initial value
};

struct LLMCommentIMP;

/// A user's feedback on the answer to one query.
///
/// All texts are UTF-8 and go into the request unescaped, so they must need no escaping inside a
/// JSON string (no double quote, backslash or control character). `EscapeJson` prepares any text.
///
/// A handle to shared state. Copies share it: a setter called on one affects all. A moved-from
/// handle is empty: its setters change nothing and return false, and submitting it fails. One
/// thread at a time may use the shared state. A submission copies it at the start and never changes
/// it, so a comment may be submitted again. A comment may be created and filled at any time, even
/// before the layer is enabled. Its functions don't block, and throw only when memory can't be
/// allocated.
class VELTRA_API LLMComment {
 public:
    /// Creates feedback on one query, with both numbers 0, no description, no pictures and the
    /// country "unKnown".
    /// @param traceId  the trace id of the query, the one set with `CHumanMessage::SetSessionID`
    explicit LLMComment(const std::string& traceId);

    /// Makes another handle to the shared state of `other`.
    /// @param other  the handle to copy; a copy of an empty handle is empty
    LLMComment(const LLMComment& other);

    /// Takes over the shared state of `other`.
    /// @param other  the handle to move from; empty afterwards
    LLMComment(LLMComment&& other) noexcept;

    /// Releases this handle's shared state and shares that of `other`.
    /// @param other  the handle to copy; if it is empty, this one becomes empty
    /// @return this handle
    LLMComment& operator=(const LLMComment& other);

    /// Releases this handle's shared state and takes over that of `other`.
    /// @param other  the handle to move from; empty afterwards
    /// @return this handle
    LLMComment& operator=(LLMComment&& other) noexcept;

    /// Releases the shared state, which is freed with its last owner.
    ~LLMComment();

    /// Sets how satisfied the user is.
    /// @param level  any number
    /// @return true; false, with nothing changed, if the handle is empty
    bool SetSatisfactionLevel(const SatisfactionLevel& level);

    /// Sets what is wrong with the answer.
    /// @param type  any number
    /// @return true; false, with nothing changed, if the handle is empty
    bool SetLLMErrType(LLMErrType type);

    /// Sets the description in the user's words.
    /// @param text  any text that needs no escaping, possibly empty
    /// @return true; false, with nothing changed, if the handle is empty
    bool SetComments(const std::string& text);

    /// Replaces the pictures. The gateway takes four at most; if there are more, which four are
    /// sent is unspecified. A text that can't be decoded is sent as an empty picture.
    /// @param pictures  JPEG files as base64: standard alphabet, padded, without line breaks, as
    ///                  `EncodeBase64` makes them. They are copied now and decoded by the
    ///                  submission
    /// @return true; false, with nothing changed, if the handle is empty
    bool SetPictures(const std::unordered_set<std::string>& pictures);

    /// Sets the user's country.
    /// @param country  any text that needs no escaping
    /// @return true; false, with nothing changed, if the handle is empty
    bool SetCountry(const std::string& country);

    /// For the library's own use: the type of the shared state is private.
    /// @return another owner of the shared state; null for an empty handle
    std::shared_ptr<LLMCommentIMP> GetManagerPtr() const;

 private:
    std::shared_ptr<LLMCommentIMP> record_;
};

/// @file
/// Submitting and withdrawing feedback.
///
/// Both functions may be called from any thread at any time, at the same time as any other, except
/// while the library is being unloaded. They throw only when memory can't be allocated. Failures
/// are logged, except for an unreadable answer from the gateway and a withdrawal that it refuses.
/// Both do nothing and return false in a child forked from a process that had used the library, and
/// on threads that still run while the process ends.

/// Submits feedback: uploads the pictures, then posts the feedback.
///
/// The feedback names the pictures that were uploaded; those that failed are left out. If the
/// feedback then fails, uploaded pictures stay in storage. Submitting a comment again creates
/// another feedback with its own id. A token that the gateway rejects is not renewed here: the
/// submission fails.
///
/// Blocks for every exchange: at most three attempts for the upload slots, three for the post, and
/// one for each picture. Each attempt is subject to the limits of `Oak::Net::HttpClientOptions`,
/// which also decide which upload URLs are accepted. Needs memory for a copy of the feedback and
/// for one decoded picture. Both request bodies to the gateway are also written to standard output,
/// one line each, unless `Veltra_SetBodyEcho` turns that off.
///
/// @param comment     the feedback; the library keeps a reference to it until the call returns
/// @param feedbackId  receives the gateway's id for `Veltra_CancleComments`, empty if the gateway
///                    gave none; unchanged when the function returns false
/// @return true if the gateway accepted the feedback. False if the layer is not enabled, `comment`
///         is null or moved from, the service is not usable (see `Veltra_IsLLMServiceValid`), none
///         of the pictures could be uploaded, or the gateway can't be reached or refuses
VELTRA_API bool Veltra_SubmitComments(std::shared_ptr<LLMComment> comment, std::string& feedbackId);

/// Withdraws feedback by the id that its submission returned. The layer keeps no ids: what happens
/// to an id that is unknown or was withdrawn before is up to the gateway. Blocks for at most three
/// attempts, each subject to the limits of `Oak::Net::HttpClientOptions`.
///
/// @param feedbackId  the id, which goes into the request unescaped
/// @return true if the gateway withdrew the feedback. False if the layer is not enabled, the
///         service is not usable, or the gateway can't be reached or refuses
VELTRA_API bool Veltra_CancleComments(std::string feedbackId);

}  // namespace Veltra

#endif
