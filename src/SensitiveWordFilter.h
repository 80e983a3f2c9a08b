#ifndef VELTRA_SRC_SENSITIVEWORDFILTER_H
#define VELTRA_SRC_SENSITIVEWORDFILTER_H

#include <boost/thread/shared_mutex.hpp>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

namespace Veltra {

/// Looks for sensitive phrases in texts. It knows the phrases by their keys alone (see PhraseKey).
///
/// Any thread may call either operation.
class SensitiveWordFilter {
 public:
    SensitiveWordFilter();

    /// Replaces the keys and the largest number of words of a phrase. A key that is not the
    /// canonical decimal text of an unsigned 64-bit number can never match and takes no place.
    void SetWords(const std::unordered_set<std::string>& keys, const std::uint32_t& limit);

    /// Whether a phrase of the text is in the list. A phrase is a run of words of one sentence;
    /// words are parted by spaces alone, sentences by the delimiters listed in the source. Time
    /// grows with the number of words times the limit. One check uses one list throughout.
    bool HasSensitiveWords(const std::string& text) const;

 private:
    /// The keys are kept as numbers: a look-up needs no text then.
    struct WordList {
        WordList(std::uint32_t mostWords, const std::unordered_set<std::string>& texts);

        bool Contains(std::uint64_t key) const {
            return marks[key & (marks.size() - 1)] && keys.contains(key);
        }

        std::uint32_t limit;
        std::unordered_set<std::uint64_t> keys;
        /// Sixteen bits a key at least, a power of two of them; each key sets the one at its low
        /// bits. Nearly every phrase of a harmless text ends here, in memory small enough to stay
        /// close to the processor.
        std::vector<bool> marks;
    };

    std::shared_ptr<const WordList> Words() const;

    std::atomic<bool> anyPhrase_{false};  // whether words_ can match at all: asked without the lock
    mutable boost::shared_mutex mutex_;   // guards the pointer; a list never changes
    std::shared_ptr<const WordList> words_;  // never empty
};

}  // namespace Veltra

#endif
