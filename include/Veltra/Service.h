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
/// except while the library is being unloaded. They throw only when memory can't be allocated. A
/// refused call changes nothing, logs why (unless the function says otherwise) and returns false.
/// All do nothing and return false in a child forked from a process that had used the library, and
/// on threads that still run while the process ends.

/// Enables the layer, which logins, queries and feedback require. Starts no thread and doesn't
/// block.
/// @return true
VELTRA_API bool Veltra_Enable();

/// Disables the layer and stops the monitor thread. Token, domains and credentials stay.
///
/// Blocks until the monitor thread has ended: immediately if it is waiting or pausing, otherwise
/// after its current exchange, which is subject to the limits of `Oak::Net::HttpClientOptions`.
/// When called from a log handler on the monitor thread itself, it doesn't wait. A login under way
/// continues, and leaves the monitor stopped.
///
/// @return true
VELTRA_API bool Veltra_Disable();

/// Tells whether the layer is enabled. Doesn't block, and logs nothing.
/// @return whether it is; initially false
VELTRA_API bool Veltra_IsEnable();

/// Stops the monitor thread and nothing else: queries continue with the current token. A later
/// login starts the monitor again. Blocks like `Veltra_Disable`. Call it before you unload the
/// library.
/// @return true
VELTRA_API bool Veltra_Unit();

/// Tells whether the gateway's service was last found usable: by a login or renewal, or by the
/// monitor thread, which checks every ten seconds. Doesn't block.
/// @return whether it was; false, with a log record, while the layer is not enabled
VELTRA_API bool Veltra_IsLLMServiceValid();

/// Sets the domain that tokens are requested from, in place of the built-in endpoints. Works
/// whether or not the layer is enabled, and takes effect with the next token request: queries still
/// go to the domain that came with the current token.
///
/// Blocks for a probe of the domain: at most three attempts, each subject to the limits of
/// `Oak::Net::HttpClientOptions`.
///
/// @param domain  scheme, host and, if needed, a port, such as "https://gateway.example", without a
///                path or a trailing slash, since paths are appended unchanged
/// @return true if the domain answered the probe with status 200 and some text, and is now set.
///         False, with nothing changed, if it did not; the empty domain never does
VELTRA_API bool Veltra_SetDomain(const std::string& domain);

/// Probes a domain as `Veltra_SetDomain` does, blocks like it, and changes nothing.
/// @param domain  a domain as for `Veltra_SetDomain`
/// @return true if the domain answered; false also while the layer is not enabled
VELTRA_API bool Veltra_IsDomainValid(const std::string& domain);

/// Logs in: requests a token with the pairs of `info` and starts the monitor thread, which keeps
/// the token fresh from then on.
///
/// The pairs are appended to those of earlier logins and stay until `Veltra_Logout`. All of them
/// are tried in order from the very first, each at the domain of `Veltra_SetDomain` or, if none is
/// set, at the production and then the test endpoint, until one yields a token. Without pairs, the
/// login uses the pair in use since an earlier login, then those after it. If all requests fail,
/// the service is not usable until a probe of the monitor thread or another login succeeds.
///
/// Blocks for every request it makes, one for each pair and domain, for a renewal under way, and
/// for a monitor thread that is ending. When called from a log handler during a login or renewal on
/// the same thread, it can't wait for that one and returns false.
///
/// @param productType  the host's product; any value, without effect
/// @param info         the credentials, read at the start and never changed
/// @return true if a token was obtained. False if the layer is not enabled, `info` is null or moved
///         from, or no pair yielded a token; a token held before is then kept
VELTRA_API bool Veltra_Authentication(const ProductType& productType,
                                      std::shared_ptr<CLicenseInfo> info);

/// Replaces the list of sensitive phrases that query values must not contain.
///
/// A phrase is found only within a sentence, in values as the host passes them in. Works whether or
/// not the layer is enabled, and doesn't wait for queries; one that is under way may still use the
/// previous list.
///
/// @param keys   the phrase keys, as computed by `AddPhraseKeys` (Veltra/PhraseKey.h): the phrases
///               themselves never reach the layer. A text that isn't such a key never matches. An
///               empty list lets every text pass
/// @param limit  the largest number of words of a phrase that is looked up; any number. 0 lets
///               every text pass, and screening takes longer the larger it is
/// @return true
VELTRA_API bool Veltra_SetsitiveWords(const std::unordered_set<std::string>& keys,
                                      const std::uint32_t& limit);

}  // namespace Veltra

#endif
