#ifndef VELTRA_TYPES_H
#define VELTRA_TYPES_H

#include <cstdint>

namespace Veltra {

/// The host's product, as numbered by the gateway's operators. The layer accepts any value, and
/// none has an effect; cast the number you were given.
enum class ProductType : std::int32_t {
    Default = 0  ///< for hosts that were given no number
};

/// The model family that a session is meant for. Any value gives the same kind of session; cast the
/// number you were given.
enum class LLMType : std::int32_t {
    Default = 0  ///< for hosts that were given no number
};

/// What the gateway is asked to check for forbidden words.
///
/// The input words are the texts that the gateway checks: those set with
/// `CHumanMessage::SetSensitiveContent` or, if there are none, every element value. Any other value
/// behaves like `CheckInput`.
enum class FilterType : std::int32_t {
    None = 1,                 ///< no input words are sent; the initial value
    CheckInput = 2,           ///< input words are sent
    CheckInputAndOutput = 3,  ///< input words are sent, and the model's output is checked
    CheckOutput = 4,          ///< sends exactly what `CheckInputAndOutput` sends
};

}  // namespace Veltra

#endif
