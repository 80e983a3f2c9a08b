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

/// @file
/// Switches, domains, login and phrase list.
///
/// Any of these functions may be called from any thread at any time, at the same time as any other,
/// except while the library is being unloaded. None throws, apart from a failure to allocate
/// memory. A refused call changes nothing, logs why (unless the function says otherwise) and
/// returns false. All return false, without doing anything, in a child forked from a process that
/// had used the library, and in threads that still run while the process ends.

/// Enables the layer: a login, queries and feedback need it. It starts no thread and doesn't block.
/// @return true
VELTRA_API bool Veltra_Enable();

/// Disables the layer and stops the monitor thread. Token, domains and credentials stay.
///
/// Blocks until the monitor thread has ended: at once while it waits or pauses, otherwise when its
/// exchange under way is over, whose limits are those of `Oak::Net::HttpClientOptions`. Called from
/// a log handler on the monitor thread itself, it doesn't wait. A login under way goes on, and
/// leaves the monitor stopped.
///
/// @return true
VELTRA_API bool Veltra_Disable();

/// Tells whether the layer is enabled. Doesn't block, and logs nothing.
/// @return whether it is; false at first
VELTRA_API bool Veltra_IsEnable();

/// Stops the monitor thread, and nothing else: queries go on with the token that is held. A later
/// login starts the monitor again. Blocks like `Veltra_Disable`. Call it before you unload the
/// library.
/// @return true
VELTRA_API bool Veltra_Unit();

/// Tells whether the gateway's service can be used, as it was last found: by a login or renewal,
/// and by the monitor thread every ten seconds. Doesn't block.
/// @return whether it can; false, with a log record, while the layer is not enabled
VELTRA_API bool Veltra_IsLLMServiceValid();

/// Sets the domain that tokens are requested from, in place of the built-in endpoints. Works
/// whether or not the layer is enabled, and holds from the next token request on: queries go on to
/// the domain that came with the token that is held.
///
/// Blocks for a probe of the domain, at most three attempts, each bounded by the limits of
/// `Oak::Net::HttpClientOptions`.
///
/// @param domain  scheme and host, and a port if need be, such as "https://gateway.example",
///                without a path or a slash at the end, since paths are appended as they are
/// @return true when the domain answered the probe with status 200 and some text, and is set.
///         False, with nothing changed, when it did not; the empty domain never does
VELTRA_API bool Veltra_SetDomain(const std::string& domain);

/// Probes a domain as `Veltra_SetDomain` does, blocks like it, and changes nothing.
/// @param domain  a domain as for `Veltra_SetDomain`
/// @return true when the domain answered; false also while the layer is not enabled
VELTRA_API bool Veltra_IsDomainValid(const std::string& domain);

/// Logs in: requests a token with the pairs of `info` and starts the monitor thread, which keeps
/// the token fresh from then on.
///
/// The pairs are appended to those of earlier logins, for good, and tried from the first of all
/// on: each at the domain of `Veltra_SetDomain` or else at the production and then the test
/// endpoint, until one gives a token. Without pairs the login uses the pair in use since an earlier
/// login, then those after it. A login whose requests all failed leaves the service not usable,
/// until a probe of the monitor thread or another login succeeds.
///
/// Blocks for every request it makes, one for each pair and domain, for a renewal under way, and
/// for a monitor thread that is ending. Called from a log handler, inside a record of a login or
/// renewal of the same thread, it can't wait for that one and returns false.
///
/// @param productType  the host's product; any value, not acted upon
/// @param info         the credentials; read at the start, and never changed
/// @return true when a token was had. False when the layer is not enabled, `info` is null or moved
///         from, or no pair gave a token; the token held before, if any, is kept then
VELTRA_API bool Veltra_Authentication(const ProductType& productType,
                                      std::shared_ptr<CLicenseInfo> info);

/// Replaces the list of sensitive phrases that query values must not contain.
///
/// A phrase is looked for inside a sentence only, in values as the host hands them in. Works
/// whether or not the layer is enabled, and doesn't block on a query; one that is under way may
/// still use the list before.
///
/// @param keys   the phrase keys, as `AddPhraseKeys` (Veltra/PhraseKey.h) gives them: the phrases
///               themselves never reach the layer. A text that isn't such a key never matches. An
///               empty list lets every text pass
/// @param limit  the largest number of words of a phrase that is looked up; any number. 0 lets
///               every text pass, and screening takes longer the larger it is
/// @return true
VELTRA_API bool Veltra_SetsitiveWords(const std::unordered_set<std::string>& keys,
                                      const std::uint32_t& limit);

}  // namespace Veltra

#endif
