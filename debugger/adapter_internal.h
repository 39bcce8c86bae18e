#pragma once

// What the parts of the adapter share.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "debugger/adapter.h"
#include "debugger/front.h"

using nlohmann::json;

// What a failure is for programs that read it.
enum class refusal_e : uint8_t {
    GENERAL = 1,
    CARD = 2,      // it has first to be said whether the card goes back
    CANCELLED = 3, // and then the message is the protocol's
};

// Thrown by a handler, which has then changed nothing; the request is answered with it.
struct refused_t {
    std::string message;
    refusal_e kind = refusal_e::GENERAL;
};

constexpr const char* LOOKS_BACK = "Looking back";

// The only thread of the protocol.
constexpr int THREAD = 1;

// Lines are counted from 0 or from 1.
constexpr int64_t HIGHEST_LINE = INT32_MAX - 1;

// ---- Messages

// Queues an event.
void tell(adapter_t& adapter, const char* event, json body = json::object());

// Queues a text for the console.
void tell_output(adapter_t& adapter, const char* category, const std::string& text);

// Numbers the messages that are queued, and takes them.
std::vector<std::string> take_messages(adapter_t& adapter);

// What the board and the logs have said since the last call.
void tell_what_was_said(adapter_t& adapter);

// A member of an object, or null; an object that is none has no members.
const json& member(const json& object, const char* name);

// Members of the arguments. Throw refused_t when they are of another kind, or outside of the range.
std::string text_in(const json& arguments, const char* name);
std::string text_in(const json& arguments, const char* name, const std::string& otherwise);
int64_t number_in(const json& arguments, const char* name, int64_t lowest, int64_t highest);
int64_t number_in(const json& arguments, const char* name, int64_t lowest, int64_t highest,
                  int64_t otherwise);
// "max", "board", or a number of instructions a second; none: as fast as possible.
std::optional<double> speed_in(const json& arguments);
bool flag_in(const json& arguments, const char* name, bool otherwise = false);

// Throw refused_t unless there is a program, unless it stands still, and unless it has also been begun.
void check_launched(const adapter_t& adapter);
void check_stopped(const adapter_t& adapter);
void check_begun(const adapter_t& adapter);

// ---- Long ways

// While it lives, a way through the history is gone that may be long: the client is told, and can give it up.
class going_t {
  public:
    going_t(adapter_t& adapter, const char* title);
    going_t(const going_t&) = delete;
    going_t& operator=(const going_t&) = delete;
    ~going_t();

    // For what goes the way.
    [[nodiscard]] progress_t progress();

    // Throws refused_t if the way was given up.
    void check() const;

  private:
    adapter_t& adapter_;
};

// The same for a motion, from when it begins until it ends.
void begin_way(adapter_t& adapter, const char* title);
bool go_on(adapter_t& adapter, double share); // whether to
void end_way(adapter_t& adapter);

// ---- Launch

void set_phase(adapter_t& adapter, phase_e phase);
// Throws refused_t where an answer to a question of the board's would do harm.
void check_answer(const question_t& question, const std::string& answer);
void begin_motion(adapter_t& adapter, motion_e motion);

// Tells that the program has stopped, or is over.
void tell_stop(adapter_t& adapter, const session_stop_t& stop);
void tell_stopped(adapter_t& adapter, const char* reason, const std::string& description,
                  const std::vector<int>& ids = {});
void end_program(adapter_t& adapter);

// After a change that no step has made.
void tell_changed(adapter_t& adapter, const char* area);

// The user says whether the card goes back with the next change in the past.
json board_card(adapter_t& adapter, const json& arguments);
json answer_card(adapter_t& adapter, bool goes_back);

// Gives the session all breakpoints again, after a new beginning.
void set_all_breakpoints(adapter_t& adapter);

// ---- Places and values

json source_of(const std::string& file);

// What an expression says, with the labels of the program. Throws tovik_error.
expression_t parse(const std::string& text);

// The address that an expression names. Throws refused_t when it names none.
int32_t place_named(const std::string& text);

// What is at an address, without side effects; none for a register that shows nothing, and for no address.
std::optional<int32_t> value_at(int32_t address);

// A reference of the protocol to a word of memory, and the byte that one means.
std::string memory_reference(int32_t address);
int64_t byte_of_reference(const std::string& reference);

// The place that a variable in a container has.
int32_t place_of_variable(int64_t reference, const std::string& name);

// "add sum sum one", for the word at an address, with labels where there are some; and how many words it is.
struct decoded_t {
    std::string text;
    int32_t size;
    bool is_instruction;
};
decoded_t decode(int32_t address);

std::string base64_of(std::string_view bytes);
std::optional<std::string> bytes_of_base64(std::string_view text);

// ---- Board

// The event `tovik/board`, when it is time for it. Returns after how many milliseconds the next one is due.
std::optional<int> tell_board(adapter_t& adapter, uint64_t now_us);

// The speaker is listened to, and nothing is recorded.
void begin_sound(bool is_heard);

// What the display shows, as two lines, and the output of that when it is new.
std::string lcd_text();
void tell_lcd(adapter_t& adapter);

// The same when the text has stayed for a while, so that nobody gets it character by character.
void tell_lcd_at_rest(adapter_t& adapter, uint64_t now_us);

// ---- The requests; the names are those of the protocol. Those that may take long are ways.

json initialize(adapter_t& adapter, const json& arguments);
json launch(adapter_t& adapter, const json& arguments);
json attach(adapter_t& adapter, const json& arguments);
json configuration_done(adapter_t& adapter, const json& arguments);
json restart(adapter_t& adapter, const json& arguments);
json terminate_program(adapter_t& adapter, const json& arguments);
json disconnect(adapter_t& adapter, const json& arguments);

json set_breakpoints(adapter_t& adapter, const json& arguments);
json set_instruction_breakpoints(adapter_t& adapter, const json& arguments);
json set_exception_breakpoints(adapter_t& adapter, const json& arguments);
json data_breakpoint_info(adapter_t& adapter, const json& arguments);
json set_data_breakpoints(adapter_t& adapter, const json& arguments);

json threads(adapter_t& adapter, const json& arguments);
way_t<json> stack_trace(adapter_t& adapter, json arguments);
json continue_program(adapter_t& adapter, const json& arguments);
json next_instruction(adapter_t& adapter, const json& arguments);
json step_in(adapter_t& adapter, const json& arguments);
way_t<json> step_out(adapter_t& adapter, json arguments);
json step_back(adapter_t& adapter, const json& arguments);
json reverse_continue(adapter_t& adapter, const json& arguments);
json pause_program(adapter_t& adapter, const json& arguments);
json goto_targets(adapter_t& adapter, const json& arguments);
json goto_target(adapter_t& adapter, const json& arguments);
json exception_info(adapter_t& adapter, const json& arguments);
json cancel(adapter_t& adapter, const json& arguments);

json scopes(adapter_t& adapter, const json& arguments);
json variables(adapter_t& adapter, const json& arguments);
json set_variable(adapter_t& adapter, const json& arguments);
json set_expression(adapter_t& adapter, const json& arguments);
way_t<json> evaluate_text(adapter_t& adapter, json arguments);
json completions(adapter_t& adapter, const json& arguments);

json disassemble(adapter_t& adapter, const json& arguments);
json read_memory(adapter_t& adapter, const json& arguments);
json write_memory(adapter_t& adapter, const json& arguments);
json source(adapter_t& adapter, const json& arguments);
json loaded_sources(adapter_t& adapter, const json& arguments);

json board_switch(adapter_t& adapter, const json& arguments);
json board_key(adapter_t& adapter, const json& arguments);
json board_pointer(adapter_t& adapter, const json& arguments);
json board_serial(adapter_t& adapter, const json& arguments);
json board_microphone(adapter_t& adapter, const json& arguments);
json board_camera(adapter_t& adapter, const json& arguments);
json board_record(adapter_t& adapter, const json& arguments);
json save_recording(adapter_t& adapter, const json& arguments);
json set_speed(adapter_t& adapter, const json& arguments);
json answer_question(adapter_t& adapter, const json& arguments);
way_t<json> go_to_moment(adapter_t& adapter, json arguments);
json history_bounds(adapter_t& adapter, const json& arguments);
way_t<json> last_write(adapter_t& adapter, json arguments);
