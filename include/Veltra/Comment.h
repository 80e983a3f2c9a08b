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
enum class SatisfactionLevel : std::int32_t { Default = 0 };

/// What is wrong with an answer, as the gateway's operators number it. Any value is sent as it is;
/// cast the number you were given.
enum class LLMErrType : std::int32_t { Default = 0 };

struct LLMCommentIMP;

/// A user's feedback on the answer to one query.
///
/// All texts are UTF-8 and go into the request as they are, without escaping: they must need none
/// inside a JSON string (no double quote, backslash or control character).
///
/// A handle on a record. Copies share the record: a setter called on one is seen through all. A
/// moved-from handle is empty: its setters change nothing and return false, and a submission of it
/// is refused. One thread at a time may use a record. A submission copies the record as it begins,
/// and never changes it, so a comment may be submitted again.
class VELTRA_API LLMComment {
 public:
    /// Makes a record for the query of that trace id, the one set with
    /// `CHumanMessage::SetSessionID`: with both numbers 0, no description, no pictures and the
    /// country "unKnown".
    explicit LLMComment(const std::string& traceId);
    LLMComment(const LLMComment& other);
    LLMComment(LLMComment&& other) noexcept;
    LLMComment& operator=(const LLMComment& other);
    LLMComment& operator=(LLMComment&& other) noexcept;
    ~LLMComment();

    // The setters take any value. False, with nothing changed, on an empty handle alone.

    bool SetSatisfactionLevel(const SatisfactionLevel& level);
    bool SetLLMErrType(LLMErrType type);

    /// Sets the description in the user's words.
    bool SetComments(const std::string& text);

    /// Replaces the pictures, each the base64 text of a JPEG file: standard alphabet, padded,
    /// without line breaks. The gateway takes four at most; which four of a larger set are sent is
    /// not defined. A text that can't be decoded is sent as an empty picture.
    bool SetPictures(const std::unordered_set<std::string>& pictures);

    /// Sets the user's country.
    bool SetCountry(const std::string& country);

    /// A further owner of the record; empty for a moved-from handle. The record's type is private.
    std::shared_ptr<LLMCommentIMP> GetManagerPtr() const;

 private:
    std::shared_ptr<LLMCommentIMP> record_;
};

// Both functions may be called from any thread at any time, at the same time as any other, except
// while the library is being unloaded. Neither throws, apart from a failure to allocate memory. A
// failure is logged, but for an answer of the gateway that can't be read and a withdrawal that it
// refuses. Both return false, without doing anything, in a child forked from a process that had
// used the library, and in threads that still run while the process ends.

/// Submits feedback: uploads the pictures, then posts the record.
///
/// True when the gateway accepted it; then `feedbackId` holds the gateway's id for
/// `Veltra_CancleComments`, empty when the gateway gave none. On false `feedbackId` is left as it
/// was. False when the layer is not enabled, `comment` is empty or moved from, no login has made
/// the service usable, none of the pictures could be uploaded, or the gateway can't be reached or
/// refuses the feedback. Of several pictures those that were uploaded are named in the feedback;
/// the others are left out. Pictures uploaded for feedback that then fails stay in storage.
/// Submitting a comment again makes a further feedback with an id of its own.
///
/// Blocks for every exchange: at most three attempts each for the upload slots and for the post,
/// and one for each picture, each attempt bounded by the limits of `Oak::Net::HttpClientOptions`,
/// which also say what upload URLs are accepted. Needs memory for a copy of the record and for one
/// decoded picture. Both request bodies to the gateway are also written to standard output, a line
/// each.
VELTRA_API bool Veltra_SubmitComments(std::shared_ptr<LLMComment> comment, std::string& feedbackId);

/// Withdraws a feedback by the id that its submission gave. True when the gateway says so; what it
/// says of an id that it doesn't know, or that was withdrawn before, is its own decision: the layer
/// keeps no ids.
///
/// False when the layer is not enabled, no login has made the service usable, or the gateway can't
/// be reached or refuses. Blocks for at most three attempts.
VELTRA_API bool Veltra_CancleComments(std::string feedbackId);

}  // namespace Veltra

#endif
