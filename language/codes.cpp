#include "language/codes.h"

#include <algorithm>

namespace {

using enum severity_e;

constexpr code_info_t CODES[] = {
    {code::CANNOT_OPEN, ERROR, "a file that cannot be opened",
     "The file of an `#include` is looked for in the folder of the file that includes it, under exactly this "
     "name.",
     "Compare the name with that of the file. It has no quotes, and capital letters count.",
     "                halt\n"
     "#include nowhere.k\n",
     "                halt\n"},
    {code::CANNOT_READ, ERROR, "a file that cannot be read to its end",
     "The disk or the network refused to give the rest of the file.", "Copy the file to another place.", "",
     ""},
    {code::INCLUDE_CYCLE, ERROR, "a file that includes itself",
     "The lines of the other file take the place of an `#include`. A file that includes itself, directly or "
     "through "
     "others, would never end.",
     "Leave this `#include` out: the labels of the file are known already.",
     "                halt\n"
     "#include program.k\n",
     "                halt\n"},
    {code::TOO_LONG, ERROR, "too many lines or includes",
     "A program of this size cannot fit into the memory of 16384 words. Mostly a file is included again and "
     "again.",
     "Include each file once.", "", ""},
    {code::CARRIAGE_RETURN, ERROR, "a carriage return inside of a line",
     "The assembler takes lines that end with a line feed, or with a carriage return and a line feed.",
     "Save the file with the line ends of Linux or of Windows.", "", ""},
    {code::TOO_LARGE, ERROR, "a word behind the end of the memory",
     "The memory has the addresses 0 to 16383.",
     "Make the program shorter, or the number in the first column above the line lower.",
     "                halt\n"
     "20000\n"
     "                .data   1\n",
     "                halt\n"
     "2000\n"
     "                .data   1\n"},
    {code::LOW_ORIGIN, ERROR, "a number in the first column that is too low",
     "A number in the first column is the address of the line, and addresses can only go up.",
     "Give a number that is not below the address reached, or none.",
     "                halt\n"
     "3               .data   1\n",
     "                halt\n"
     "4               .data   1\n"},
    {code::DUPLICATE_LABEL, ERROR, "a label that is defined twice",
     "A label stands for one address. The files of a program share their labels.",
     "Give one of the two another name. If a whole file is named, it is included twice.",
     "                cp      i one\n"
     "                halt\n"
     "i               .data   0\n"
     "one             .data   1\n"
     "i               .data   0\n",
     "                cp      i one\n"
     "                halt\n"
     "i               .data   0\n"
     "one             .data   1\n"},
    {code::UNKNOWN_OPCODE, ERROR, "an operation that does not exist",
     "The first word of a line that is not in the first column is its operation. The K24 has no operation of "
     "this name.",
     "Correct the name, in small letters. If the word is a label, it has to begin in the first column; if "
     "the operation "
     "stands in the first column, indent it.",
     "                ad      i i one\n"
     "                halt\n"
     "i               .data   0\n"
     "one             .data   1\n",
     "                add     i i one\n"
     "                halt\n"
     "i               .data   0\n"
     "one             .data   1\n"},
    {code::MALFORMED_NUMBER, ERROR, "a number that is not written as the K24 writes numbers",
     "What begins with a digit or a sign is a number: `42`, `-42` or `0x2a`, without `+`, without leading "
     "zeros, with "
     "small letters.",
     "Write the number so. A name has to begin with a letter.",
     "                halt\n"
     "                .data   007\n",
     "                halt\n"
     "                .data   7\n"},
    {code::UNDEFINED_LABEL, ERROR, "a label that no line defines",
     "An operand that is no number is the name of a label, and no line of the program begins with this name.",
     "Correct the name, in the same capital and small letters, or write a line that defines it, such as `one "
     ".data 1`.",
     "                add     i i one\n"
     "                halt\n"
     "i               .data   0\n",
     "                add     i i one\n"
     "                halt\n"
     "i               .data   0\n"
     "one             .data   1\n"},
    {code::MISSING_OPERAND, ERROR, "too few operands", "Each operation has a fixed number of operands.",
     "Write the operands that are missing.",
     "                add     i i\n"
     "                halt\n"
     "i               .data   0\n",
     "                add     i i i\n"
     "                halt\n"
     "i               .data   0\n"},
    {code::EXTRA_OPERAND, ERROR, "more than the operation takes",
     "Each operation has a fixed number of operands, and only a comment may stand behind them.",
     "Leave out what is too much, or write `//` before a comment.",
     "                cp      i i i\n"
     "                halt\n"
     "i               .data   0\n",
     "                cp      i i\n"
     "                halt\n"
     "i               .data   0\n"},
    {code::FOREIGN_COMMENT, ERROR, "a comment in the manner of another language",
     "A comment begins with `//`.", "Write `//`.", "                halt            ; the end\n",
     "                halt            // the end\n"},
    {code::MORE, NOTE, "more than the list shows", "The list of what is wrong ends after 1000 entries.",
     "Mend the first ones; many of the others may follow from them.", "", ""},

    {code::BARE_NUMBER, WARNING, "a number where the address of a word is meant",
     "An operand is an address, never a value: `add i i 1` adds what is at the address 1, and that is a part "
     "of the "
     "program's first instruction.",
     "A constant is a word: write `one .data 1` behind the program and use `one`. To put a number into a "
     "word there is "
     "`cpdata`.",
     "                add     i i 1\n"
     "                halt\n"
     "i               .data   0\n",
     "                add     i i one\n"
     "                halt\n"
     "i               .data   0\n"
     "one             .data   1\n"},
    {code::ILLEGAL_ADDRESS, WARNING, "an address that nothing has",
     "The memory has the addresses 0 to 16383, and each device has a few from 0x80000000 on. Any other one "
     "stops the run "
     "with the error \"illegal address\". -1 is the address 0xffffffff.",
     "Look the register up. If the number is meant as a value, it needs a word: `minus_one .data -1`.",
     "                cpdata  0x80000006 1\n"
     "                halt\n",
     "                cpdata  0x80000003 1\n"
     "                halt\n"},
    {code::BEGINS_WITH_DATA, WARNING, "data where the program begins",
     "Execution begins at the address 0, and what is there is executed, also when it comes from a `.data` "
     "line.",
     "Put the data behind the last `halt`, or begin with a jump over it: `be start 0 0`.",
     "i               .data   7\n"
     "                cp      0x80000003 i\n"
     "                halt\n",
     "                cp      0x80000003 i\n"
     "                halt\n"
     "i               .data   7\n"},
    {code::NO_HALT, WARNING, "a program without `halt`",
     "A program ends with the operation `halt` only. Without it, it runs on into what stands behind its last "
     "instruction, "
     "mostly its data.",
     "Write an indented `halt` where the program ends. A program that is to run for ever jumps back there.",
     "                cp      0x80000001 switches\n"
     "switches        .data   5\n",
     "                cp      0x80000001 switches\n"
     "                halt\n"
     "switches        .data   5\n"},
    {code::RUNS_INTO_DATA, WARNING, "a way on which the program runs into its data",
     "After an instruction comes the one behind it, also when that is a `.data` line: its number is then "
     "taken for an "
     "operation.",
     "End this way with `halt`, with `ret`, or with a jump such as `be again 0 0`.",
     "                blt     small 0x80000000 ten\n"
     "                halt\n"
     "small           cpdata  0x80000002 1\n"
     "ten             .data   10\n",
     "                blt     small 0x80000000 ten\n"
     "                halt\n"
     "small           cpdata  0x80000002 1\n"
     "                halt\n"
     "ten             .data   10\n"},
    {code::BAD_TARGET, WARNING, "a jump to what is no instruction",
     "A branch or call goes on at the address of its first operand. There has to be the first word of an "
     "instruction: a "
     "line with an operation.",
     "Use the label of the instruction that is meant. The target is the first operand of `be`, `bne`, `blt` "
     "and `call`.",
     "again           sub     i i one\n"
     "                bne     i again zero\n"
     "                be      again i one\n"
     "                halt\n"
     "i               .data   7\n"
     "zero            .data   0\n"
     "one             .data   1\n",
     "again           sub     i i one\n"
     "                bne     again i zero\n"
     "                halt\n"
     "i               .data   7\n"
     "zero            .data   0\n"
     "one             .data   1\n"},
    {code::UNREACHED, WARNING, "an instruction that is never executed",
     "No way through the program leads to this instruction: the one before it never goes on to it, and "
     "nothing jumps to "
     "it.",
     "Look at the `halt` or jump before it: it may stand too early. Or the label of this instruction should "
     "be the "
     "target of a branch.",
     "                halt\n"
     "                cpdata  0x80000001 1\n",
     "                cpdata  0x80000001 1\n"
     "                halt\n"},
    {code::CODE_OVERWRITTEN, WARNING, "a word that is stored over an instruction",
     "The label of an instruction is the address of its operation. What is stored there takes the "
     "operation's place, and "
     "is executed the next time.",
     "Store into a word of data. To change an operand on purpose, the usual way is `cpta word step two`: the "
     "array that "
     "begins at the instruction `step`, whose words 1 to 3 are the operands.",
     "again           add     again again one\n"
     "                halt\n"
     "one             .data   1\n",
     "                add     sum sum one\n"
     "                halt\n"
     "one             .data   1\n"
     "sum             .data   0\n"},
    {code::UNUSED_LABEL, WARNING, "a label that nothing uses",
     "No operand names this label. Often a line uses another label where this one is meant.",
     "Look for the line that should use it, or leave the label out.",
     "                cp      0x80000003 count\n"
     "                halt\n"
     "count           .data   7\n"
     "total           .data   9\n",
     "                cp      0x80000003 count\n"
     "                halt\n"
     "count           .data   7\n"},
    {code::OPERATION_AS_LABEL, WARNING, "an operation in the first column",
     "What stands in the first column is a label, also when it has the name of an operation. The program has "
     "no such "
     "operation here.",
     "Write blanks before it.",
     "                cpdata  0x80000001 1\n"
     "halt\n",
     "                cpdata  0x80000001 1\n"
     "                halt\n"},
    {code::LABEL_COLON, WARNING, "a colon behind a label",
     "A label ends at the next blank. The colon belongs to its name, so `loop` alone does not mean this "
     "label.",
     "Leave the colon out.",
     "loop:           blt     loop: 0x80000005 ticks\n"
     "                halt\n"
     "ticks           .data   800\n",
     "loop            blt     loop 0x80000005 ticks\n"
     "                halt\n"
     "ticks           .data   800\n"},
    {code::LABEL_CASE, WARNING, "labels that differ only in capital and small letters",
     "`Count` and `count` are two labels with two words. A program that means one and writes the other gets "
     "wrong "
     "results without a message.",
     "Give one of them another name.",
     "                cp      Count count\n"
     "                halt\n"
     "count           .data   7\n"
     "Count           .data   0\n",
     "                cp      copy count\n"
     "                halt\n"
     "count           .data   7\n"
     "copy            .data   0\n"},
    {code::INVISIBLE_CHARACTER, WARNING, "a character that one does not see",
     "Only blanks and tabs separate words. A no-break space, which comes into a program with text from a web "
     "page, and a byte order mark, which some editors write at the beginning of a file, are letters of the "
     "word "
     "beside them; in the first column they begin a label.",
     "Write blanks instead. Let the editor save the file as UTF-8 without a byte order mark.",
     "\xc2\xa0               cpdata  0x80000001 1\n"
     "                halt\n",
     "                cpdata  0x80000001 1\n"
     "                halt\n"},
    {code::BAD_ALLOW, WARNING, "a comment that silences nothing",
     "A comment such as `// tovik: allow bare-number` at the end of a line silences the warnings of that "
     "line that "
     "have the codes it names, and only when it is written so.",
     "Write the codes as they stand in brackets behind the warnings, with commas between them, at the end of "
     "the "
     "line that is meant. A fault cannot be silenced.",
     "                cpdata  0x80000001 1\n"
     "                halt            // tovik: allow barenumber\n",
     "                cpdata  0x80000001 1\n"
     "                halt\n"},
    {code::RETURN_MISMATCH, WARNING, "a call and a `ret` with different words",
     "`call` puts the address of the next instruction into its second operand, and `ret` goes on at the "
     "address that is "
     "in its operand. When these are two words, the subroutine does not come back here.",
     "Use the same word in the `call` and in the `ret` of the subroutine.",
     "                call    light light_ret\n"
     "                call    light other_ret\n"
     "                halt\n"
     "light           cpdata  0x80000001 1\n"
     "                ret     light_ret\n"
     "light_ret       .data   0\n"
     "other_ret       .data   0\n",
     "                call    light light_ret\n"
     "                call    light light_ret\n"
     "                halt\n"
     "light           cpdata  0x80000001 1\n"
     "                ret     light_ret\n"
     "light_ret       .data   0\n"},
    {code::RETURN_WITHOUT_CALL, WARNING, "a `ret` of a word that no `call` writes",
     "`ret` goes on at the address that is in its operand. No instruction ever puts an address into this "
     "word.",
     "Use the word that is the second operand of the `call`. A program ends with `halt`, not with `ret`.",
     "                cpdata  0x80000001 1\n"
     "                ret     end\n"
     "                halt            // tovik: allow unreached\n"
     "end             .data   0\n",
     "                cpdata  0x80000001 1\n"
     "                halt\n"},
    {code::RUNS_INTO_SUBROUTINE, WARNING, "a way on which the program runs into a subroutine",
     "After an instruction comes the one behind it, also when a subroutine begins there. Its `ret` then goes "
     "back "
     "behind the last call once more, or to the address 0 if there was none.",
     "End the way with `halt` or with a jump before the subroutine.",
     "                be      end 0x80000000 zero\n"
     "                call    show back\n"
     "show            cp      0x80000003 0x80000000\n"
     "                ret     back\n"
     "end             halt\n"
     "zero            .data   0\n"
     "back            .data   0\n",
     "                be      end 0x80000000 zero\n"
     "                call    show back\n"
     "end             halt\n"
     "show            cp      0x80000003 0x80000000\n"
     "                ret     back\n"
     "zero            .data   0\n"
     "back            .data   0\n"},
    {code::RECURSION, WARNING, "a subroutine that calls itself and forgets where to go back",
     "The subroutine calls itself with the same word for the return address. The inner call overwrites it, "
     "so the outer "
     "one never finds back.",
     "Save the word before the call and put it back behind it, for example on the stack of "
     "`examples/lib/stack.k`.",
     "                call    down down_ret\n"
     "                halt\n"
     "down            sub     n n one\n"
     "                be      down_end n zero\n"
     "                call    down down_ret\n"
     "down_end        ret     down_ret\n"
     "down_ret        .data   0\n"
     "n               .data   3\n"
     "zero            .data   0\n"
     "one             .data   1\n",
     "                call    down down_ret\n"
     "                halt\n"
     "down            sub     n n one\n"
     "                bne     down n zero\n"
     "                ret     down_ret\n"
     "down_ret        .data   0\n"
     "n               .data   3\n"
     "zero            .data   0\n"
     "one             .data   1\n"},
    {code::PORT_DIRECTION, WARNING, "a register that is read or written the wrong way round",
     "Each register of a device can either be read or be written. The other one stops the run with the error "
     "\"unsupported operation\".",
     "Look at the order of the operands: the first one is where the result goes. What was written to a "
     "register cannot be "
     "read back; keep it in a word.",
     "                cp      shown 0x80000001\n"
     "                halt\n"
     "shown           .data   0\n",
     "                cp      0x80000001 0x80000000\n"
     "                halt\n"},
    {code::COMMAND_NOT_CLEARED, WARNING, "a command that never goes back to 0",
     "A device begins when its command changes from 0 to 1. When the program never writes 0, it works only "
     "once.",
     "Write 0 to the command when the response has been read as 1.",
     "                cpdata  0x80000010 1\n"
     "wait            bne     wait 0x80000011 one\n"
     "                halt\n"
     "one             .data   1\n",
     "                cpdata  0x80000010 1\n"
     "wait            bne     wait 0x80000011 one\n"
     "                cpdata  0x80000010 0\n"
     "                halt\n"
     "one             .data   1\n"},
    {code::COMMAND_NOT_SET, WARNING, "a device that has no command",
     "A device does nothing while its command is 0, whatever its parameters are. Its response stays 0, and a "
     "program that waits for it waits for ever.",
     "Write the parameters, then 1 to the command, and read the response after that.",
     "wait            bne     wait 0x80000011 one\n"
     "                halt\n"
     "one             .data   1\n",
     "                cpdata  0x80000010 1\n"
     "wait            bne     wait 0x80000011 one\n"
     "                cpdata  0x80000010 0\n"
     "                halt\n"
     "one             .data   1\n"},
    {code::PARAMETER_TOO_LATE, WARNING, "a parameter that is written while the command is 1",
     "A device takes its parameters over while the command is 0. To change one while it is 1 stops the run "
     "with the error "
     "\"shouldn't change command parameters when command is 1\".",
     "Write the parameters before the command becomes 1, and 0 to the command before the next ones.",
     "                cpdata  0x80000010 1\n"
     "                cpdata  0x80000014 65\n"
     "                cpdata  0x80000010 0\n"
     "                halt\n",
     "                cpdata  0x80000014 65\n"
     "                cpdata  0x80000010 1\n"
     "wait            be      wait 0x80000011 zero\n"
     "                cpdata  0x80000010 0\n"
     "                halt\n"
     "zero            .data   0\n"},
    {code::RESULT_TOO_EARLY, WARNING, "a result that is read before the response",
     "A result counts only when the response has been read as 1 and the command is still 1. To read it at "
     "another time "
     "stops the run with the error \"verify that response is 1 before reading response parameters\".",
     "Read the response until it is 1, then the results, and write 0 to the command after that.",
     "                cpdata  0x80000020 1\n"
     "                cp      0x80000003 0x80000023\n"
     "                cpdata  0x80000020 0\n"
     "                halt\n",
     "                cpdata  0x80000020 1\n"
     "wait            be      wait 0x80000021 zero\n"
     "                cp      0x80000003 0x80000023\n"
     "                cpdata  0x80000020 0\n"
     "                halt\n"
     "zero            .data   0\n"},
};

} // namespace

const char* name_of(severity_e severity) {
    switch (severity) {
    case ERROR:
        return "error";
    case WARNING:
        return "warning";
    default:
        return "note";
    }
}

std::span<const code_info_t> all_codes() { return CODES; }

const code_info_t* find_code(std::string_view code) {
    const auto* const found = std::find_if(std::begin(CODES), std::end(CODES),
                                           [&](const code_info_t& info) { return info.code == code; });
    return found == std::end(CODES) ? nullptr : found;
}

std::string explanation(const code_info_t& info) {
    std::string text = "## " + std::string(info.code) + "\n";
    const auto paragraph = [&](std::string_view words) { text.append("\n").append(words) += "\n"; };
    const auto example = [&](const char* title, std::string_view program) {
        if (!program.empty()) {
            text.append("\n").append(title).append(":\n\n```k24\n").append(program) += "```\n";
        }
    };
    const char* const kind = info.severity == severity_e::ERROR  ? "A fault: "
                             : info.severity == severity_e::NOTE ? "A note: "
                                                                 : "A warning: ";
    paragraph(kind + std::string(info.title) + ".");
    paragraph(info.why);
    paragraph(info.remedy);
    example("Wrong", info.wrong);
    example("Right", info.right);
    return text;
}
