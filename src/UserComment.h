#ifndef VELTRA_SRC_USERCOMMENT_H
#define VELTRA_SRC_USERCOMMENT_H

#include <Veltra/Comment.h>

#include <memory>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

namespace Veltra {

/// A place for one picture in the gateway's object storage: the image key, by which feedback names
/// the picture, and the pre-signed URL to put it to.
using UploadSlot = std::pair<std::string, std::string>;

/// Everything about feedback. It has no state; each operation runs on the calling thread and blocks
/// for its exchanges. Any thread may call any operation. A caller holds a HostCall.
class UserComentManager {
 public:
    /// Uploads the pictures of a comment, then posts it. On true `feedbackId` holds the gateway's
    /// id, possibly empty; on false it is left as it was.
    static bool UpLoadComments(std::shared_ptr<LLMComment> comment, std::string& feedbackId);

    /// Asks for slots and pushes the pictures to them, one decoded picture being held at a time.
    /// Adds to `uploaded`, which the caller passes empty, the slots whose picture was stored, in
    /// the order of pushing. True when there were no pictures, or at least one was stored.
    static bool UpLoadPics(const std::string& traceId,
                           const std::unordered_set<std::string>& pictures,
                           std::vector<UploadSlot>& uploaded);

    /// Withdraws a feedback. True when the gateway says that it did; an answer that says otherwise,
    /// or nothing, isn't logged.
    static bool CancelComments(const std::string& feedbackId);

    /// Posts a body to the gateway and takes the text of the answer, whatever it says. On false
    /// `response` is left as it was.
    static bool SendToCloud(const std::string& path, const std::string& body,
                            std::string& response);

    /// Whether the bodies of feedback and slot requests are written to standard output.
    static void SetBodyEcho(bool on);
    /// Sets it off, unless the host has set it.
    static void EchoNoBodiesUnlessSet();
};

}  // namespace Veltra

#endif
