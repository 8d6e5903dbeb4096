// From an entity of a graph to its number in a survey: through its id, as long as ids are as they
// should be, and through its address when they are not.
//
// Owner: the Survey.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

namespace QN::verification {

template <typename T>
class Numbering {
public:
    /// `limit` is what the graph says that ids lie below, `expected` about how many entities there
    /// are. A limit far above what is expected is not worth a table.
    void reset(std::uint32_t limit, std::size_t expected) {
        byAddress_.clear();
        idsAreDistinct_ = true;
        byId_.assign(limit <= 16 * expected + 1024 ? limit : 0, none);
        usesTable_ = limit == byId_.size();
    }

    void add(const T* entity, std::uint32_t number) {
        if (!usesTable_) {
            byAddress_.emplace(entity, number);
            return;
        }
        const std::uint32_t id = entity->id();
        if (id < byId_.size() && byId_[id] == none) [[likely]] {
            byId_[id] = number;
        } else {
            idsAreDistinct_ = false;
        }
    }

    /// To be called when all are added, with all of them by number.
    template <typename Pointers>
    void finish(const Pointers& all) {
        if (idsAreDistinct_) {
            return;
        }
        usesTable_ = false;
        for (std::uint32_t i = 0; i < all.size(); ++i) {
            byAddress_.emplace(static_cast<const T*>(all[i]), i);
        }
    }

    /// The number of an entity that was added.
    [[nodiscard]] std::uint32_t operator[](const T* entity) const {
        return usesTable_ ? byId_[entity->id()] : byAddress_.at(entity);
    }

    /// From id to number, null if there is no such table; only for ids of what was added.
    [[nodiscard]] const std::uint32_t* table() const noexcept {
        return usesTable_ ? byId_.data() : nullptr;
    }

    /// Whether ids are known to be distinct and below the limit; otherwise they need a look.
    [[nodiscard]] bool idsAreSound() const noexcept { return usesTable_; }

private:
    static constexpr std::uint32_t none = UINT32_MAX;
    std::vector<std::uint32_t> byId_;
    std::unordered_map<const T*, std::uint32_t> byAddress_;
    bool usesTable_ = true;
    bool idsAreDistinct_ = true;
};

} // namespace QN::verification
