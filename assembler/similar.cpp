#include "assembler/similar.h"

#include <algorithm>
#include <array>

namespace {

constexpr size_t LONGEST_NAME = 40;
constexpr size_t MOST_EDITS = 3;
constexpr int64_t COST_OF_LOOK = 1;

// How many letters may be wrong. Of short names nearly all are alike.
size_t edits_allowed(size_t size, size_t other) { return std::min(std::max(size, other) / 3, MOST_EDITS); }

uint32_t letters_of(std::string_view text) {
    uint32_t letters = 0;
    for (const char c : text) {
        letters |= 1U << (static_cast<unsigned>(small(c)) % 32);
    }
    return letters;
}

// A first look: an edit changes at most two of the letters that a name has.
bool differ_in_more(uint32_t letters, uint32_t other, size_t most) {
    uint32_t different = letters ^ other;
    for (size_t i = 0; i < most; ++i) {
        different &= different - 1;
    }
    return different != 0;
}

// The number of letters to change, insert, leave out or exchange with their neighbours, in whatever case they
// are; above `most` any number that is.
size_t distance(std::string_view a, std::string_view b, size_t most) {
    using row_t = std::array<uint8_t, LONGEST_NAME + 1>; // small, because it is filled again and again
    std::array<row_t, 3> rows;
    for (row_t& row : rows) {
        row.fill(static_cast<uint8_t>(most + 1));
    }
    for (size_t j = 0; j <= std::min(b.size(), most); ++j) {
        rows[0][j] = static_cast<uint8_t>(j);
    }
    for (size_t i = 1; i <= a.size(); ++i) {
        row_t& row = rows[i % 3];
        const row_t& above = rows[(i + 2) % 3];
        const row_t& two_above = rows[(i + 1) % 3];
        // Only near the diagonal; what is beside it was reached with more edits than are allowed.
        const size_t begin = i > most ? i - most : 0;
        const size_t end = std::min(b.size(), i + most);
        row.fill(static_cast<uint8_t>(most + 1));
        for (size_t j = begin; j <= end; ++j) {
            if (j == 0) {
                row[0] = static_cast<uint8_t>(i);
                continue;
            }
            const bool same = small(a[i - 1]) == small(b[j - 1]);
            int edits = std::min({above[j - 1] + (same ? 0 : 1), above[j] + 1, row[j - 1] + 1});
            if (i > 1 && j > 1 && small(a[i - 1]) == small(b[j - 2]) && small(a[i - 2]) == small(b[j - 1])) {
                edits = std::min(edits, two_above[j - 2] + 1);
            }
            row[j] = static_cast<uint8_t>(edits);
        }
    }
    return rows[a.size() % 3][b.size()];
}

} // namespace

char small(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

std::string small(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), [](char c) { return small(c); });
    return result;
}

name_t to_compare(std::string_view name) { return {letters_of(name), name}; }

std::string_view nearest(std::string_view name, const std::vector<name_t>& names, int64_t& budget) {
    std::string_view best;
    size_t fewest = MOST_EDITS + 1;
    if (name.size() > LONGEST_NAME) {
        return best;
    }
    const uint32_t letters = letters_of(name);
    for (const auto& [other_letters, other] : names) {
        budget -= COST_OF_LOOK;
        if (budget < 0) {
            return {};
        }
        const size_t most = std::min(edits_allowed(name.size(), other.size()), fewest - 1);
        if (other.size() > LONGEST_NAME || other.size() > name.size() + most ||
            name.size() > other.size() + most || differ_in_more(letters, other_letters, 2 * most)) {
            continue;
        }
        budget -= static_cast<int64_t>(name.size() * (2 * most + 1));
        const size_t edits = distance(name, other, most);
        if (edits <= most) {
            fewest = edits;
            best = other;
        }
        if (fewest == 0) {
            break;
        }
    }
    return best;
}
