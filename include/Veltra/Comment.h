#ifndef VELTRA_COMMENT_H
#define VELTRA_COMMENT_H

#include <Veltra/Export.h>

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_set>

namespace Veltra {

/// How content a user is with an answer, as the gateway's operators number it. Any value is sent as
/// it is; cast the number you were given.
enum class SatisfactionLevel : std::int32_t {
    Default = 0  ///< the initial value
};

/// What is wrong with an answer, as the gateway's operators number it. Any value is sent as it is;
/// cast the number you were given.
enum class LLMErrType : std::int32_t {
    Default = 0  ///< the initial value
};

struct LLMCommentIMP;

/// A user's feedback on the answer to one query.
///
/// All texts are UTF-8 and go into the request as they are, without escaping: they must need none
/// inside a JSON string (no double quote, backslash or control character). `EscapeJson` makes any
/// text so.
///
/// A handle on a record. Copies share the record: a setter called on one is seen through all. A
/// moved-from handle is empty: its setters change nothing and return false, and a submission of it
/// is refused. One thread at a time may use a record. A submission copies the record as it begins,
/// and never changes it, so a comment may be submitted again. It may be made and filled at any
/// time, also before the layer is enabled: no function of it blocks, and none throws, apart from a
/// failure to allocate memory.
class VELTRA_API LLMComment {
 public:
    /// Makes a record for one query: with both numbers 0, no description, no pictures and the
    /// country "unKnown".
    /// @param traceId  the trace id of the query, the one set with `CHumanMessage::SetSessionID`
    explicit LLMComment(const std::string& traceId);

    /// Makes a further handle on the record of `other`.
    /// @param other  the handle to copy; an empty one gives an empty one
    LLMComment(const LLMComment& other);

    /// Takes over the record of `other`.
    /// @param other  the handle to move from; empty afterwards
    LLMComment(LLMComment&& other) noexcept;

    /// Lets go of this handle's record and becomes a further handle on that of `other`.
    /// @param other  the handle to copy; an empty one makes this one empty
    /// @return this handle
    LLMComment& operator=(const LLMComment& other);

    /// Lets go of this handle's record and takes over that of `other`.
    /// @param other  the handle to move from; empty afterwards
    /// @return this handle
    LLMComment& operator=(LLMComment&& other) noexcept;

    /// Lets go of the record, which is freed with the last of its owners.
    ~LLMComment();

    /// Sets how content the user is.
    /// @param level  any number
    /// @return false, with nothing changed, when the handle is empty
    bool SetSatisfactionLevel(const SatisfactionLevel& level);

    /// Sets what is wrong with the answer.
    /// @param type  any number
    /// @return false, with nothing changed, when the handle is empty
    bool SetLLMErrType(LLMErrType type);

    /// Sets the description in the user's words.
    /// @param text  any text that needs no escaping, possibly empty
    /// @return false, with nothing changed, when the handle is empty
    bool SetComments(const std::string& text);

    /// Replaces the pictures. The gateway takes four at most; which four of a larger set are sent
    /// is not defined. A text that can't be decoded is sent as an empty picture.
    /// @param pictures  the base64 texts of JPEG files: standard alphabet, padded, without line
    ///                  breaks, as `EncodeBase64` makes them. They are copied, and looked at by the
    ///                  submission only
    /// @return false, with nothing changed, when the handle is empty
    bool SetPictures(const std::unordered_set<std::string>& pictures);

    /// Sets the user's country.
    /// @param country  any text that needs no escaping
    /// @return false, with nothing changed, when the handle is empty
    bool SetCountry(const std::string& country);

    /// For the library's own use: the record's type is private.
    /// @return a further owner of the record; null for an empty handle
    std::shared_ptr<LLMCommentIMP> GetManagerPtr() const;

 private:
    std::shared_ptr<LLMCommentIMP> record_;
};

/// @file
/// Feedback and its withdrawal.
///
/// Both functions may be called from any thread at any time, at the same time as any other, except
/// while the library is being unloaded. Neither throws, apart from a failure to allocate memory. A
/// failure is logged, but for an answer of the gateway that can't be read and a withdrawal that it
/// refuses. Both return false, without doing anything, in a child forked from a process that had
/// used the library, and in threads that still run while the process ends.

/// Submits feedback: uploads the pictures, then posts the record.
///
/// Of several pictures those that were uploaded are named in the feedback; the others are left out.
/// Pictures uploaded for feedback that then fails stay in storage. Submitting a comment again makes
/// a further feedback with an id of its own. A token that the gateway rejects is not renewed here:
/// the submission fails.
///
/// Blocks for every exchange: at most three attempts each for the upload slots and for the post,
/// and one for each picture, each attempt bounded by the limits of `Oak::Net::HttpClientOptions`,
/// which also say what upload URLs are accepted. Needs memory for a copy of the record and for one
/// decoded picture. Both request bodies to the gateway are also written to standard output, a line
/// each, unless `Veltra_SetBodyEcho` forbids it.
///
/// @param comment     the feedback; the library holds on to it until the call returns
/// @param feedbackId  receives the gateway's id for `Veltra_CancleComments`, empty when the gateway
///                    gave none; left as it was when the function returns false
/// @return true when the gateway accepted the feedback. False when the layer is not enabled,
///         `comment` is null or moved from, the service is not usable (see
///         `Veltra_IsLLMServiceValid`), none of the pictures could be uploaded, or the gateway
///         can't be reached or refuses
VELTRA_API bool Veltra_SubmitComments(std::shared_ptr<LLMComment> comment, std::string& feedbackId);

/// Withdraws a feedback by the id that its submission gave. What the gateway says of an id that it
/// doesn't know, or that was withdrawn before, is its own decision: the layer keeps no ids. Blocks
/// for at most three attempts, each bounded by the limits of `Oak::Net::HttpClientOptions`.
///
/// @param feedbackId  the id, which goes into the request without escaping
/// @return true when the gateway withdrew the feedback. False when the layer is not enabled, the
///         service is not usable, or the gateway can't be reached or refuses
VELTRA_API bool Veltra_CancleComments(std::string feedbackId);

}  // namespace Veltra

#endif
