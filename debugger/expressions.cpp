#include "debugger/expressions.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cctype>
#include <charconv>
#include <utility>

#include "base/arithmetic.h"
#include "base/machine.h"
#include "debugger/ports.h"
#include "devices/io.h"

namespace {

using enum operator_e;

constexpr size_t DEEPEST = 64; // parentheses and signs within each other

// Conditions are asked again and again, and nobody waits for one.
constexpr size_t MOST_STEPS = 1000;

struct binary_t {
    std::string_view sign;
    operator_e op;
};

// From the weakest to the strongest. A sign that another one begins with comes after it.
const std::vector<std::vector<binary_t>> LEVELS = {
    {{"||", OR_SKIP}},
    {{"&&", AND_SKIP}},
    {{"|", BIT_OR}},
    {{"^", BIT_XOR}},
    {{"&", BIT_AND}},
    {{"==", EQUAL}, {"!=", NOT_EQUAL}},
    {{"<=", LESS_EQUAL}, {">=", GREATER_EQUAL}, {"<", LESS}, {">", GREATER}},
    {{"<<", SHIFT_LEFT}, {">>", SHIFT_RIGHT}},
    {{"+", ADD}, {"-", SUBTRACT}},
    {{"*", MULTIPLY}, {"/", DIVIDE}, {"%", REMAINDER}},
};

// Values that wait for their operators: in each pair of parentheses one for each level, and the last.
constexpr size_t MOST_VALUES = (DEEPEST + 1) * 11;

bool begins_name(char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0 || c == '_'; }

bool goes_on(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '.'; }

class parser_t {
  public:
    parser_t(std::string_view text, const find_label_t& find_label) : text_(text), find_label_(find_label) {
        expression_.text = text;
    }

    expression_t parse() {
        parse_level(0);
        skip_blanks();
        if (at_ < text_.size()) {
            fail("'" + std::string(text_.substr(at_, 1)) + "' does not go on with an expression");
        }
        return std::move(expression_);
    }

  private:
    [[noreturn]] void fail(const std::string& fault) const {
        throw tovik_error("column " + std::to_string(at_ + 1) + ": " + fault);
    }

    void skip_blanks() {
        while (at_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[at_])) != 0) {
            ++at_;
        }
    }

    bool take(std::string_view sign) {
        skip_blanks();
        if (!text_.substr(at_).starts_with(sign)) {
            return false;
        }
        at_ += sign.size();
        return true;
    }

    void expect(std::string_view sign) {
        if (!take(sign)) {
            fail("expected '" + std::string(sign) + "'");
        }
    }

    void add(operator_e op, int32_t value = 0) {
        if (expression_.steps.size() == MOST_STEPS) {
            fail("the expression is too long");
        }
        expression_.steps.push_back({op, value});
    }

    // A '<' of "<<" and a '&' of "&&" are not signs of their own.
    bool is_whole(std::string_view sign) const {
        const char next = at_ + sign.size() < text_.size() ? text_[at_ + sign.size()] : ' ';
        return sign.size() > 1 || std::string_view("<>|&").find(sign) == std::string_view::npos ||
               next != sign[0];
    }

    const binary_t* take_binary(size_t level) {
        skip_blanks();
        for (const binary_t& binary : LEVELS[level]) {
            if (text_.substr(at_).starts_with(binary.sign) && is_whole(binary.sign)) {
                at_ += binary.sign.size();
                return &binary;
            }
        }
        return nullptr;
    }

    void parse_level(size_t level) {
        if (level == LEVELS.size()) {
            parse_unary();
            return;
        }
        parse_level(level + 1);
        while (const binary_t* const binary = take_binary(level)) {
            const bool skips = binary->op == AND_SKIP || binary->op == OR_SKIP;
            const size_t skip = expression_.steps.size();
            if (skips) {
                add(binary->op);
            }
            parse_level(level + 1);
            if (skips) {
                add(TRUTH);
                expression_.steps[skip].value = static_cast<int32_t>(expression_.steps.size() - skip - 1);
            } else {
                add(binary->op);
            }
        }
    }

    void parse_unary() {
        if (++depth_ > DEEPEST) {
            fail("too many parentheses and signs");
        }
        if (take("-")) {
            parse_unary();
            add(NEGATE);
        } else if (take("!")) {
            parse_unary();
            add(NOT);
        } else if (take("~")) {
            parse_unary();
            add(INVERT);
        } else if (take("&")) {
            add(NUMBER, label_address(take_name()));
        } else if (take("(")) {
            parse_level(0);
            expect(")");
        } else if (take("[")) {
            parse_level(0);
            expect("]");
            add_load();
        } else {
            parse_operand();
        }
        --depth_;
    }

    void parse_operand() {
        skip_blanks();
        const char first = at_ < text_.size() ? text_[at_] : '\0';
        if (std::isdigit(static_cast<unsigned char>(first)) != 0) {
            add(NUMBER, take_number());
        } else if (first == '\'') {
            add(NUMBER, take_character());
        } else if (begins_name(first) || first == '"') {
            parse_name();
        } else {
            fail(first == '\0' ? "the expression ends too early"
                               : "'" + std::string(1, first) + "' begins no operand");
        }
    }

    int32_t take_number() {
        const bool is_hexadecimal = text_.substr(at_).starts_with("0x");
        const char* const begin = text_.data() + at_ + (is_hexadecimal ? 2 : 0);
        uint32_t number = 0;
        const auto [end, error] =
            std::from_chars(begin, text_.data() + text_.size(), number, is_hexadecimal ? 16 : 10);
        if (error != std::errc() || (end < text_.data() + text_.size() && goes_on(*end))) {
            fail("this is no number of 32 bits");
        }
        at_ = static_cast<size_t>(end - text_.data());
        return static_cast<int32_t>(number);
    }

    int32_t take_character() {
        if (at_ + 2 >= text_.size() || text_[at_ + 2] != '\'') {
            fail("expected one character between '");
        }
        at_ += 3;
        return static_cast<unsigned char>(text_[at_ - 2]);
    }

    std::string_view take_name() {
        skip_blanks();
        size_t end = at_;
        if (end < text_.size() && text_[end] == '"') {
            end = text_.find('"', at_ + 1);
            if (end == std::string_view::npos) {
                fail("expected '\"' behind the label");
            }
            const std::string_view name = text_.substr(at_ + 1, end - at_ - 1);
            at_ = end + 1;
            return name;
        }
        while (end < text_.size() && goes_on(text_[end])) {
            ++end;
        }
        const std::string_view name = text_.substr(at_, end - at_);
        if (name.empty()) {
            fail("expected a label");
        }
        at_ = end;
        return name;
    }

    int32_t label_address(std::string_view name) const {
        const std::optional<int32_t> address = find_label_(name);
        if (!address) {
            fail("there is no label " + std::string(name));
        }
        return *address;
    }

    void parse_name() {
        const bool quoted = text_[at_] == '"';
        const std::string_view name = take_name();
        if (!quoted && (name == "pc" || name == "instructions")) {
            add(name == "pc" ? PC : INSTRUCTIONS);
            expression_.reads_others = true;
            return;
        }
        const std::optional<int32_t> address = find_label_(name);
        const std::optional<int32_t> offset = quoted || address ? std::nullopt : find_register_name(name);
        if (offset) {
            add_port(*offset);
            return;
        }
        const int32_t label = address ? *address : label_address(name);
        if (take("[")) {
            add(NUMBER, label);
            parse_level(0);
            expect("]");
            add(ADD);
            add_load();
        } else {
            add(NUMBER, label);
            add_load();
        }
    }

    void add_port(int32_t offset) {
        add(PORT, offset);
        expression_.reads_others = true;
    }

    // The address is what has been parsed last. One that is known is read without being computed.
    void add_load() {
        std::vector<step_t>& steps = expression_.steps;
        const bool sums = steps.size() >= 3 && steps.back().op == ADD &&
                          steps[steps.size() - 2].op == NUMBER && steps[steps.size() - 3].op == NUMBER;
        if (sums) {
            const int32_t sum = wrap_add(steps[steps.size() - 3].value, steps[steps.size() - 2].value);
            steps.resize(steps.size() - 2);
            steps.back().value = sum;
        }
        const int32_t address = steps.back().value;
        if (steps.back().op != NUMBER) {
            add(LOAD);
            expression_.reads_others = true;
        } else if (address < 0) {
            steps.pop_back();
            if (!peek_register(io_offset(address))) {
                fail("no register has this address");
            }
            add_port(io_offset(address));
        } else if (address >= MEMORY_SIZE) {
            fail("there is no word " + std::to_string(address));
        } else {
            steps.back().op = WORD;
            expression_.words.push_back(address);
        }
    }

    std::string_view text_;
    const find_label_t& find_label_;
    size_t at_ = 0;
    size_t depth_ = 0;
    expression_t expression_;
};

int32_t load(int32_t address) {
    if (address >= 0 && address < MEMORY_SIZE) {
        return machine.memory[address];
    }
    const std::optional<int32_t> port = address < 0 ? peek_register(io_offset(address)) : std::nullopt;
    if (!port) {
        throw tovik_error("there is nothing at address " + std::to_string(address));
    }
    return *port;
}

int32_t shifted(operator_e op, int32_t value, int32_t amount) {
    if (amount < 0) {
        throw tovik_error("negative shift amount");
    }
    if (amount >= DATA_BITS) {
        return 0;
    }
    return op == SHIFT_LEFT ? shift_left(value, amount) : shift_right(value, amount);
}

int32_t divided(operator_e op, int32_t left, int32_t right) {
    if (right == 0) {
        throw tovik_error("division by zero");
    }
    const int32_t quotient = wrap_div(left, right);
    return op == DIVIDE ? quotient : wrap_sub(left, wrap_mult(quotient, right));
}

int32_t combined(operator_e op, int32_t left, int32_t right) {
    switch (op) {
    case MULTIPLY:
        return wrap_mult(left, right);
    case DIVIDE:
    case REMAINDER:
        return divided(op, left, right);
    case ADD:
        return wrap_add(left, right);
    case SUBTRACT:
        return wrap_sub(left, right);
    case SHIFT_LEFT:
    case SHIFT_RIGHT:
        return shifted(op, left, right);
    case LESS:
        return left < right ? 1 : 0;
    case LESS_EQUAL:
        return left <= right ? 1 : 0;
    case GREATER:
        return left > right ? 1 : 0;
    case GREATER_EQUAL:
        return left >= right ? 1 : 0;
    case EQUAL:
        return left == right ? 1 : 0;
    case NOT_EQUAL:
        return left != right ? 1 : 0;
    case BIT_AND:
        return left & right;
    case BIT_XOR:
        return left ^ right;
    default:
        assert(op == BIT_OR);
        return left | right;
    }
}

int32_t changed(operator_e op, int32_t value) {
    switch (op) {
    case NEGATE:
        return wrap_sub(0, value);
    case NOT:
        return value == 0 ? 1 : 0;
    case INVERT:
        return ~value;
    default:
        assert(op == TRUTH);
        return value != 0 ? 1 : 0;
    }
}

std::optional<int32_t> operand_of(const step_t& step) {
    switch (step.op) {
    case NUMBER:
        return step.value;
    case WORD:
        return machine.memory[step.value];
    case PORT:
        return *peek_register(step.value);
    case PC:
        return machine.pc;
    case INSTRUCTIONS:
        return static_cast<int32_t>(machine.instr_count);
    default:
        return std::nullopt;
    }
}

} // namespace

expression_t parse_expression(std::string_view text, const find_label_t& find_label) {
    return parser_t(text, find_label).parse();
}

namespace {

// The value of the first steps.
int32_t evaluate_steps(const expression_t& expression, size_t count) {
    std::array<int32_t, MOST_VALUES> values; // NOLINT(*-member-init): filled as far as it is used
    size_t top = 0;                          // values there are
    for (size_t i = 0; i < count; ++i) {
        const step_t& step = expression.steps[i];
        if (const std::optional<int32_t> operand = operand_of(step)) {
            values[top++] = *operand;
        } else if (step.op == AND_SKIP || step.op == OR_SKIP) {
            int32_t& value = values[top - 1];
            const bool decides = (value != 0) == (step.op == OR_SKIP);
            value = value != 0 ? 1 : 0;
            i += decides ? static_cast<size_t>(step.value) : 0;
            top -= decides ? 0 : 1;
        } else if (step.op == LOAD) {
            values[top - 1] = load(values[top - 1]);
        } else if (step.op == NEGATE || step.op == NOT || step.op == INVERT || step.op == TRUTH) {
            values[top - 1] = changed(step.op, values[top - 1]);
        } else {
            --top;
            values[top - 1] = combined(step.op, values[top - 1], values[top]);
        }
    }
    return values[0];
}

} // namespace

int32_t evaluate(const expression_t& expression) {
    return evaluate_steps(expression, expression.steps.size());
}

std::optional<int32_t> address_of(const expression_t& expression) {
    const step_t& last = expression.steps.back();
    if (last.op == LOAD) {
        return evaluate_steps(expression, expression.steps.size() - 1);
    }
    if (expression.steps.size() != 1 || (last.op != WORD && last.op != PORT)) {
        return std::nullopt;
    }
    return last.op == WORD ? last.value : IO_BASE + last.value;
}
