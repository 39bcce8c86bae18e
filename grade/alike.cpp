// Whole programs are compared by a hash of what does not hang on names and places: a target is counted in
// instructions from the one that names it, a word of data is known by when it is first used. Their similarity
// is the resemblance of Broder, "On the Resemblance and Containment of Documents" (1997): of the sequences of
// four instructions that one of two programs has, the share that both have. In a sequence words of data are
// numbered from its own beginning, as Baker, "A Theory of Parameterized Pattern Matching" (1993), does with
// names, and of a target only the direction counts: then a changed line changes no more than four sequences.

#include "grade/alike.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <map>
#include <set>
#include <utility>

#include "grade/hash.h"
#include "grade/markdown.h"
#include "grade/outputs.h"

namespace {

constexpr size_t SEQUENCE = 4; // instructions

// Sequences that more than a quarter of the different programs have are natural for the task; of a few
// programs all may be copies of one.
constexpr size_t COMMON_PART = 4;
constexpr size_t LEAST_COMMON = 4;

// Below that, likeness is chance.
constexpr size_t LEAST_SHARED = 12; // sequences
constexpr int LEAST_PERCENT = 50;

constexpr size_t MOST_LINES_SHOWN = 20;

// ---- A program without its names

enum class meaning_e : uint8_t { NUMBER, INSTRUCTION, DATA, LIBRARY };

// What an operand stands for.
struct meaning_t {
    meaning_e kind;
    int64_t which;  // the number, the instruction, the block of data, a hash of the library's line
    int64_t offset; // words from its first one
};

struct program_t {
    const source_map_t* map;
    std::vector<uint32_t> instructions;        // statements
    std::vector<std::vector<uint32_t>> blocks; // statements with data that belong together
    std::vector<size_t> place;                 // by statement: in `instructions` or `blocks`
};

bool is_main(const statement_t& statement) { return statement.file == 0 && statement.operation != nullptr; }

// A label that is used begins another block, and so does a gap.
bool begins_block(const source_map_t& map, uint32_t number) {
    const statement_t& one = map.statements[number];
    const bool has_used_label = one.defines != NOTHING && map.labels[one.defines].use_count > 0;
    if (number == 0 || has_used_label) {
        return true;
    }
    const statement_t& before = map.statements[number - 1];
    return !is_main(before) || !is_data(*before.operation) || before.address + 1 != one.address;
}

program_t program_of(const source_map_t& map) {
    program_t program{&map, {}, {}, std::vector<size_t>(map.statements.size())};
    for (uint32_t number = 0; number < map.statements.size(); ++number) {
        if (!is_main(map.statements[number])) {
            continue;
        }
        if (is_data(*map.statements[number].operation)) {
            if (begins_block(map, number)) {
                program.blocks.emplace_back();
            }
            program.place[number] = program.blocks.size() - 1;
            program.blocks.back().push_back(number);
        } else {
            program.place[number] = program.instructions.size();
            program.instructions.push_back(number);
        }
    }
    return program;
}

meaning_t meaning_of(const program_t& program, const statement_t& statement, size_t operand) {
    const source_map_t& map = *program.map;
    const auto& [token, label, value] = statement.operands[operand];
    const bool is_address = label != NOTHING || statement.operation->operands[operand].role != role_e::VALUE;
    const bool is_inside = value >= 0 && static_cast<size_t>(value) < map.words.size();
    if (!is_address || !is_inside || map.words[static_cast<size_t>(value)].statement == NOTHING) {
        return {meaning_e::NUMBER, value, 0};
    }
    const uint32_t number = map.words[static_cast<size_t>(value)].statement;
    const statement_t& meant = map.statements[number];
    if (meant.file != 0) {
        hash_t hash;
        add_text(hash, map.files[meant.file].name);
        add_number(hash, meant.line);
        return {meaning_e::LIBRARY, static_cast<int64_t>(hash.value), value - meant.address};
    }
    const auto place = static_cast<int64_t>(program.place[number]);
    if (is_data(*meant.operation)) {
        const statement_t& first = map.statements[program.blocks[program.place[number]].front()];
        return {meaning_e::DATA, place, value - first.address};
    }
    return {meaning_e::INSTRUCTION, place, value - meant.address};
}

// ---- Fingerprints

// Blocks of data in the order in which they are first used.
struct uses_t {
    std::vector<size_t> order;
    std::vector<int64_t> number; // by block; -1: not used yet
};

int64_t use(uses_t& uses, size_t block) {
    if (uses.number[block] < 0) {
        uses.number[block] = static_cast<int64_t>(uses.order.size());
        uses.order.push_back(block);
    }
    return uses.number[block];
}

enum class targets_e : uint8_t { DISTANCES, DIRECTIONS };

int64_t direction(int64_t distance) { return distance < 0 ? -1 : static_cast<int64_t>(distance > 0); }

// `here` is the instruction's number, 0 for data.
void add_statement(hash_t& hash, const program_t& program, const statement_t& statement, int64_t here,
                   uses_t& uses, targets_e targets) {
    add_text(hash, statement.operation->name);
    for (size_t operand = 0; operand < statement.operation->count; ++operand) {
        auto [kind, which, offset] = meaning_of(program, statement, operand);
        if (kind == meaning_e::DATA) {
            which = use(uses, static_cast<size_t>(which));
        } else if (kind == meaning_e::INSTRUCTION) {
            which = targets == targets_e::DISTANCES ? which - here : direction(which - here);
        }
        add_number(hash, static_cast<int64_t>(kind));
        add_number(hash, which);
        add_number(hash, offset);
    }
}

void add_block(hash_t& hash, const program_t& program, size_t block, uses_t& uses) {
    add_number(hash, static_cast<int64_t>(program.blocks[block].size()));
    for (const uint32_t number : program.blocks[block]) {
        add_statement(hash, program, program.map->statements[number], 0, uses, targets_e::DISTANCES);
    }
}

hash_t hash_of(const program_t& program) {
    hash_t hash;
    uses_t uses{{}, std::vector<int64_t>(program.blocks.size(), -1)};
    for (size_t i = 0; i < program.instructions.size(); ++i) {
        add_statement(hash, program, program.map->statements[program.instructions[i]],
                      static_cast<int64_t>(i), uses, targets_e::DISTANCES);
    }
    // A block may use others.
    for (size_t i = 0; i < uses.order.size(); ++i) {
        add_block(hash, program, uses.order[i], uses);
    }
    std::vector<uint64_t> unused;
    for (size_t block = 0; block < program.blocks.size(); ++block) {
        if (uses.number[block] < 0) {
            uses_t own = uses;
            hash_t hash_of_block;
            add_block(hash_of_block, program, block, own);
            unused.push_back(hash_of_block.value);
        }
    }
    std::sort(unused.begin(), unused.end());
    for (const uint64_t one : unused) {
        add_number(hash, static_cast<int64_t>(one));
    }
    return hash;
}

// Half of each hash will do: that a few of them meet by chance changes no figure.
std::vector<uint32_t> sequences_of(const program_t& program) {
    std::vector<uint32_t> all;
    uses_t uses{{}, std::vector<int64_t>(program.blocks.size(), -1)};
    for (size_t first = 0; first + SEQUENCE <= program.instructions.size(); ++first) {
        hash_t hash;
        for (size_t i = first; i < first + SEQUENCE; ++i) {
            add_statement(hash, program, program.map->statements[program.instructions[i]],
                          static_cast<int64_t>(i), uses, targets_e::DIRECTIONS);
        }
        for (const size_t block : uses.order) {
            uses.number[block] = -1;
        }
        uses.order.clear();
        all.push_back(static_cast<uint32_t>(hash.value >> 32 ^ hash.value));
    }
    std::sort(all.begin(), all.end());
    all.erase(std::unique(all.begin(), all.end()), all.end());
    return all;
}

// ---- A class

struct print_t {
    std::string whole;
    size_t instructions = 0;
    std::vector<uint32_t> sequences;
    std::vector<std::string> students; // who have this program
};

// Results may have been read from a file that somebody changed: what is no fingerprint has nothing.
print_t print_of(const std::string& fingerprint) {
    print_t print;
    const size_t end = fingerprint.find(':');
    const size_t begin = end == std::string::npos ? end : fingerprint.find(':', end + 1);
    if (begin == std::string::npos) {
        return print;
    }
    print.whole = fingerprint.substr(0, begin);
    std::from_chars(&fingerprint[end + 1], &fingerprint[begin], print.instructions);
    constexpr size_t DIGITS = 8;
    for (size_t i = begin + 1; i + DIGITS <= fingerprint.size(); i += DIGITS) {
        uint32_t value = 0;
        std::from_chars(&fingerprint[i], &fingerprint[i] + DIGITS, value, 16);
        print.sequences.push_back(value);
    }
    return print;
}

// In the order of the class.
std::vector<print_t> different_programs(const std::vector<student_result_t>& results) {
    std::vector<print_t> prints;
    std::map<std::string, size_t> found;
    for (const student_result_t& result : results) {
        print_t print = print_of(result.fingerprint);
        if (print.instructions == 0) {
            continue;
        }
        const auto [entry, is_new] = found.try_emplace(print.whole, prints.size());
        if (is_new) {
            prints.push_back(std::move(print));
        }
        prints[entry->second].students.push_back(result.student);
    }
    return prints;
}

// Which programs have a sequence that is not natural for the task, for each such sequence.
std::vector<std::vector<size_t>> owners_of(const std::vector<print_t>& prints,
                                           const std::vector<std::string>& known) {
    std::vector<std::pair<uint32_t, size_t>> all;
    for (size_t i = 0; i < prints.size(); ++i) {
        for (const uint32_t sequence : prints[i].sequences) {
            all.emplace_back(sequence, i);
        }
    }
    std::set<uint32_t> natural;
    for (const std::string& fingerprint : known) {
        const std::vector<uint32_t> sequences = print_of(fingerprint).sequences;
        natural.insert(sequences.begin(), sequences.end());
    }
    std::sort(all.begin(), all.end());
    const size_t most = std::max(prints.size() / COMMON_PART, LEAST_COMMON);
    std::vector<std::vector<size_t>> rare;
    for (auto begin = all.begin(); begin != all.end();) {
        const auto end =
            std::find_if(begin, all.end(), [=](const auto& one) { return one.first != begin->first; });
        if (static_cast<size_t>(end - begin) <= most && !natural.contains(begin->first)) {
            std::vector<size_t>& owners = rare.emplace_back();
            std::transform(begin, end, std::back_inserter(owners),
                           [](const auto& one) { return one.second; });
        }
        begin = end;
    }
    return rare;
}

std::vector<alike_t> similar_programs(const std::vector<print_t>& prints,
                                      const std::vector<std::string>& known) {
    const std::vector<std::vector<size_t>> owners = owners_of(prints, known);
    std::vector<std::vector<size_t>> sequences(prints.size()); // of each program: indices into `owners`
    for (size_t i = 0; i < owners.size(); ++i) {
        for (const size_t print : owners[i]) {
            sequences[print].push_back(i);
        }
    }
    std::vector<alike_t> similar;
    for (size_t one = 0; one < prints.size(); ++one) {
        std::vector<size_t> shared(prints.size());
        for (const size_t i : sequences[one]) {
            for (const size_t other : owners[i]) {
                ++shared[other];
            }
        }
        for (size_t other = one + 1; other < prints.size(); ++other) {
            const size_t all = sequences[one].size() + sequences[other].size() - shared[other];
            const int percent =
                shared[other] < LEAST_SHARED ? 0 : static_cast<int>(100 * shared[other] / all);
            if (percent >= LEAST_PERCENT) {
                similar.push_back(
                    {prints[one].students, prints[other].students, percent, prints[one].instructions});
            }
        }
    }
    std::stable_sort(similar.begin(), similar.end(),
                     [](const alike_t& one, const alike_t& other) { return one.percent > other.percent; });
    return similar;
}

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : ", ") + name;
    }
    return text;
}

std::string measure(const alike_t& one) {
    return (one.others.empty() ? "equal" : std::to_string(one.percent) + " % alike") + ", " +
           std::to_string(one.instructions) + " instructions";
}

} // namespace

std::string fingerprint_of(const source_map_t& map) {
    const program_t program = program_of(map);
    std::string text = digits_of(hash_of(program)) + ":" + std::to_string(program.instructions.size()) + ":";
    for (const uint32_t sequence : sequences_of(program)) {
        std::array<char, 9> digits{};
        std::snprintf(digits.data(), digits.size(), "%08" PRIx32, sequence);
        text += digits.data();
    }
    return text;
}

std::vector<alike_t> find_alike(const std::vector<student_result_t>& results,
                                const std::vector<std::string>& known) {
    const std::vector<print_t> prints = different_programs(results);
    std::vector<alike_t> all;
    for (const print_t& print : prints) {
        if (print.students.size() > 1) {
            all.push_back({print.students, {}, 100, print.instructions});
        }
    }
    const std::vector<alike_t> similar = similar_programs(prints, known);
    all.insert(all.end(), similar.begin(), similar.end());
    return all;
}

std::string alike_text(const std::vector<alike_t>& all) {
    std::string text;
    for (size_t i = 0; i < std::min(all.size(), MOST_LINES_SHOWN); ++i) {
        const alike_t& one = all[i];
        text += joined(one.students) + (one.others.empty() ? "" : " with " + joined(one.others)) + ": " +
                measure(one) + "\n";
    }
    if (all.size() > MOST_LINES_SHOWN) {
        text += "and " + std::to_string(all.size() - MOST_LINES_SHOWN) + " more\n";
    }
    return text.empty() ? "" : "\nAlike:\n" + text;
}

std::string alike_csv(const std::vector<alike_t>& all) {
    std::string text = "percent,instructions,students,others\n";
    for (const alike_t& one : all) {
        text += std::to_string(one.percent) + "," + std::to_string(one.instructions) + "," +
                quoted_for_csv(joined(one.students)) + "," + quoted_for_csv(joined(one.others)) + "\n";
    }
    return text;
}

std::string alike_markdown(const std::vector<alike_t>& all) {
    std::string text =
        "# Submissions that are alike\n\n"
        "Equal: the same up to names, comments, spacing and the order of data. Otherwise the "
        "figure says how many of the sequences of four instructions are in both, without those "
        "that many of the class or the reference solution have.\n\n"
        "This is a reason to look, and no proof: short programs are alike by nature.\n\n";
    for (const alike_t& one : all) {
        text += "- " + in_markdown(joined(one.students)) +
                (one.others.empty() ? "" : " with " + in_markdown(joined(one.others))) + ": " + measure(one) +
                "\n";
    }
    return text + (all.empty() ? "None.\n" : "");
}
