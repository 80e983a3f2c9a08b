#ifndef VELTRA_SERVICE_H
#define VELTRA_SERVICE_H

#include <Veltra/Export.h>
#include <Veltra/LicenseInfo.h>
#include <Veltra/Types.h>

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_set>

namespace Veltra {

// Any of these functions may be called from any thread at any time, at the same time as any other,
// except while the library is being unloaded. None throws, apart from a failure to allocate memory.
// A refused call changes nothing, logs why (unless the function says otherwise) and returns false.
// All return false, without doing anything, in a child forked from a process that had used the
// library, and in threads that still run while the process ends.

/// Enables the layer: a login, queries and feedback need it. True.
VELTRA_API bool Veltra_Enable();

/// Disables the layer and stops the monitor thread. Token, domains and credentials stay. True.
///
/// Blocks until the monitor thread has ended: at once while it waits or pauses, otherwise when its
/// exchange under way is over, whose limits are those of `Oak::Net::HttpClientOptions`. Called from
/// a log handler on the monitor thread itself, it doesn't wait. A login under way goes on, and
/// leaves the monitor stopped.
VELTRA_API bool Veltra_Disable();

/// Whether the layer is enabled; false at first.
VELTRA_API bool Veltra_IsEnable();

/// Stops the monitor thread, and nothing else: queries go on with the token that is held. True. A
/// later login starts the monitor again. Blocks like `Veltra_Disable`. Call it before you unload
/// the library.
VELTRA_API bool Veltra_Unit();

/// Whether the gateway's service can be used: true after a login, then as the monitor thread finds
/// every ten seconds. False, with a log record, while the layer is not enabled.
VELTRA_API bool Veltra_IsLLMServiceValid();

/// Sets the domain that tokens are requested from, in place of the built-in endpoints: scheme and
/// host, such as "https://gateway.example", without a path or a slash at the end, since paths are
/// appended as they are. Works whether or not the layer is enabled, and holds from the next token
/// request on.
///
/// Blocks for a probe of the domain, at most three attempts. False, with nothing changed, when the
/// probe fails, as it does for an empty domain.
VELTRA_API bool Veltra_SetDomain(const std::string& domain);

/// Probes a domain as `Veltra_SetDomain` does and changes nothing. False while the layer is not
/// enabled.
VELTRA_API bool Veltra_IsDomainValid(const std::string& domain);

/// Logs in: requests a token with the pairs of `info` and starts the monitor thread, which keeps
/// the token fresh from then on.
///
/// The pairs are appended to those of earlier logins, for good, and tried from the first of all
/// on: each at the domain of `Veltra_SetDomain` or else at the production and then the test
/// endpoint, until one gives a token. Without pairs the login uses those handed in before. Blocks
/// for every request it makes, for a renewal under way, and for a monitor thread that is ending.
///
/// False when the layer is not enabled, `info` is empty or moved from, or no pair gave a token; the
/// token held before, if any, is kept then.
VELTRA_API bool Veltra_Authentication(const ProductType& productType,
                                      std::shared_ptr<CLicenseInfo> info);

/// Replaces the list of sensitive phrases that query values must not contain.
///
/// `keys` holds the phrase keys, as `PhraseKey` (Veltra/PhraseKey.h) computes them: the phrases
/// themselves never reach the layer. A text that isn't such a key never matches. `limit` is the
/// largest number of words of a phrase that is looked up; a phrase is looked for inside a sentence
/// only. An empty list or a limit of 0 lets every text pass. True. Works whether or not the layer
/// is enabled; a query under way may still use the list before.
VELTRA_API bool Veltra_SetsitiveWords(const std::unordered_set<std::string>& keys,
                                      const std::uint32_t& limit);

}  // namespace Veltra

#endif
