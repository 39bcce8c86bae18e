#include "debugger/pages.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cstring>
#include <map>
#include <memory>
#include <utility>

#include "base/machine.h"

namespace {

constexpr size_t PAGE_BYTES = 4096;

size_t contents_kept = 0;

struct content_t {
    std::array<std::byte, PAGE_BYTES> bytes;

    explicit content_t(const std::byte* from) : bytes() {
        std::memcpy(bytes.data(), from, PAGE_BYTES);
        ++contents_kept;
    }
    content_t(const content_t&) = delete;
    content_t& operator=(const content_t&) = delete;
    ~content_t() { --contents_kept; }
};

using content_ptr_t = std::shared_ptr<const content_t>;

struct page_t {
    std::map<moment_t, content_ptr_t> versions; // from when on it had each of these contents
    content_ptr_t loaded; // what it held when the board was last copied or put back; nullptr: not known
};

// A memory, and what says that it may have changed; nullptr for one that always may.
struct area_t {
    std::byte* begin;
    size_t pages;
    bool touched_t::*touched;
};

template <typename memory_t> area_t area_of(memory_t& memory, bool touched_t::*touched_flag = nullptr) {
    static_assert(sizeof(memory_t) % PAGE_BYTES == 0);
    return {reinterpret_cast<std::byte*>(&memory), sizeof(memory_t) / PAGE_BYTES, touched_flag};
}

const std::array AREAS = {
    area_of(machine.memory),
    area_of(machine.modified),
    area_of(machine.fft_send),
    area_of(machine.fft_receive),
    area_of(machine.vga_ram, &touched_t::picture),
    area_of(machine.vga_last, &touched_t::picture),
    area_of(machine.vga_picture, &touched_t::picture),
    area_of(machine.camera_ram, &touched_t::frame),
};

constexpr size_t SDRAM_PAGES = sizeof machine.sdram_ram / PAGE_BYTES;
static_assert(SDRAM_PAGES == decltype(touched.sdram_pages)().size());

struct pages_kept_t {
    // Those of the SDRAM by their number, those of the areas behind them.
    std::vector<page_t> pages;
    std::vector<uint32_t> of_sdram; // those of the SDRAM that have a version
};

pages_kept_t store;

std::byte* bytes_of_sdram(size_t page) {
    return reinterpret_cast<std::byte*>(machine.sdram_ram) + page * PAGE_BYTES;
}

// For each page of the areas: its number, its bytes and its area.
template <typename act_t> void for_pages_of_areas(act_t act) {
    uint32_t number = SDRAM_PAGES;
    for (const area_t& area : AREAS) {
        for (size_t i = 0; i < area.pages; ++i) {
            act(number++, area.begin + i * PAGE_BYTES, area);
        }
    }
}

content_ptr_t version_at(const page_t& page, moment_t moment) {
    const auto after = page.versions.upper_bound(moment);
    return after == page.versions.begin() ? nullptr : std::prev(after)->second;
}

void keep_page(uint32_t number, const std::byte* bytes, moment_t moment, std::optional<moment_t> next,
               kept_t& kept) {
    page_t& page = store.pages[number];
    if (page.loaded == nullptr || std::memcmp(page.loaded->bytes.data(), bytes, PAGE_BYTES) != 0) {
        page.loaded = std::make_shared<const content_t>(bytes);
    }
    const content_ptr_t before = version_at(page, moment);
    if (before == page.loaded) {
        return;
    }
    if (page.versions.empty() && number < SDRAM_PAGES) {
        store.of_sdram.push_back(number);
    }
    // What comes next had the same as what came before: it needs a version of its own now.
    if (next && page.versions.upper_bound(moment) == page.versions.upper_bound(*next) && before != nullptr) {
        page.versions[*next] = before;
        kept.next.push_back(number);
    }
    page.versions[moment] = page.loaded;
    kept.now.push_back(number);
}

void touch(uint32_t number) {
    if (number < SDRAM_PAGES) {
        touched.sdram_pages[number] = true;
        return;
    }
    size_t end = SDRAM_PAGES;
    for (const area_t& area : AREAS) {
        end += area.pages;
        if (number < end) {
            if (area.touched != nullptr) {
                touched.*area.touched = true;
            }
            return;
        }
    }
}

void load_page(page_t& page, std::byte* bytes, moment_t moment, bool touched_since) {
    content_ptr_t wanted = version_at(page, moment);
    if (wanted != nullptr && (touched_since || wanted != page.loaded)) {
        std::memcpy(bytes, wanted->bytes.data(), PAGE_BYTES);
    }
    page.loaded = std::move(wanted);
}

} // namespace

void clear_pages() {
    store = {};
    size_t count = SDRAM_PAGES;
    for (const area_t& area : AREAS) {
        count += area.pages;
    }
    store.pages.resize(count);
    touched = {.picture = true, .frame = true, .recording = true, .sdram_pages = machine.sdram_filled};
}

kept_t keep_pages(moment_t moment, std::optional<moment_t> next, bool with_frame) {
    kept_t kept;
    for_pages_of_areas([&](uint32_t number, const std::byte* bytes, const area_t& area) {
        const bool may_differ = area.touched == nullptr || touched.*area.touched;
        if (may_differ && (with_frame || area.touched != &touched_t::frame)) {
            keep_page(number, bytes, moment, next, kept);
        }
    });
    if (touched.sdram_pages.any()) {
        for (uint32_t page = 0; page < SDRAM_PAGES; ++page) {
            if (touched.sdram_pages[page]) {
                keep_page(page, bytes_of_sdram(page), moment, next, kept);
            }
        }
    }
    touched = {
        .picture = false, .frame = touched.frame && !with_frame, .recording = false, .sdram_pages = {}};
    return kept;
}

void load_pages(moment_t moment) {
    for_pages_of_areas([&](uint32_t number, std::byte* bytes, const area_t& area) {
        load_page(store.pages[number], bytes, moment, area.touched == nullptr || touched.*area.touched);
    });
    for (const uint32_t page : store.of_sdram) {
        load_page(store.pages[page], bytes_of_sdram(page), moment, touched.sdram_pages[page]);
    }
    touched = {};
}

pages_t drop_pages(moment_t moment, const pages_t& pages, std::optional<moment_t> next) {
    pages_t moved;
    for (const uint32_t number : pages) {
        auto& versions = store.pages[number].versions;
        const auto version = versions.find(moment);
        assert(version != versions.end());
        if (!next) {
            touch(number); // the board may still hold what only this version kept
        } else if (versions.emplace(*next, version->second).second) {
            moved.push_back(number);
        }
        versions.erase(version);
    }
    return moved;
}

size_t pages_size() {
    constexpr size_t NODE_BYTES = 64; // of a map
    return contents_kept * (PAGE_BYTES + NODE_BYTES);
}
