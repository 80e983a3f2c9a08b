#include "submit_feedback.h"

#include <Veltra/Veltra.h>

namespace tool {

std::optional<std::string> submitFeedback(const std::shared_ptr<Veltra::LLMComment>& comment,
                                          OutputElsewhere::Target bodies) {
    const OutputElsewhere elsewhere(bodies);
    std::string id;
    if (!Veltra::Veltra_SubmitComments(comment, id)) return std::nullopt;
    return id;
}

}  // namespace tool
