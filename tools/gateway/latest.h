#pragma once

#include <algorithm>
#include <cstddef>
#include <deque>
#include <utility>
#include <vector>

namespace gateway {

/// Keeps the latest entries, up to a number and up to a sum of their sizes. The newest is kept
/// however large it is.
template <typename Entry>
class Latest {
 public:
    Latest(std::size_t maxCount, std::size_t maxBytes) : maxCount_(maxCount), maxBytes_(maxBytes) {}

    void add(Entry entry, std::size_t size) {
        held_.push_back({std::move(entry), size});
        bytes_ += size;
        dropSurplus();
    }

    /// Changes the newest entry that matches, if any; it grows by so much.
    template <typename Matches, typename Change>
    void changeLast(Matches matches, std::size_t growth, Change change) {
        const auto found = std::find_if(held_.rbegin(), held_.rend(),
                                        [&](const Held& held) { return matches(held.entry); });
        if (found == held_.rend()) return;
        change(found->entry);
        found->size += growth;
        bytes_ += growth;
        dropSurplus();
    }

    void clear() {
        held_.clear();
        bytes_ = 0;
    }

    /// The first entry that matches; null when there is none.
    template <typename Matches>
    Entry* find(Matches matches) {
        const auto found = search(matches);
        return found == held_.end() ? nullptr : &found->entry;
    }

    template <typename Matches>
    void eraseFirst(Matches matches) {
        const auto found = search(matches);
        if (found == held_.end()) return;
        bytes_ -= found->size;
        held_.erase(found);
    }

    /// Oldest first.
    template <typename Visit>
    void forEach(Visit visit) const {
        for (const auto& held : held_)
            visit(held.entry);
    }

    std::vector<Entry> all() const {
        std::vector<Entry> entries;
        entries.reserve(held_.size());
        for (const auto& held : held_)
            entries.push_back(held.entry);
        return entries;
    }

 private:
    struct Held {
        Entry entry;
        std::size_t size;
    };

    template <typename Matches>
    auto search(Matches matches) {
        return std::find_if(held_.begin(), held_.end(),
                            [&](const Held& held) { return matches(held.entry); });
    }

    void dropSurplus() {
        while (held_.size() > maxCount_ || (bytes_ > maxBytes_ && held_.size() > 1)) {
            bytes_ -= held_.front().size;
            held_.pop_front();
        }
    }

    const std::size_t maxCount_;
    const std::size_t maxBytes_;
    std::deque<Held> held_;
    std::size_t bytes_ = 0;
};

}  // namespace gateway
