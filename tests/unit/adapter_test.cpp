// The debug adapter where time has to stand still: what a client hears of long ways through the history.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <unistd.h>

#include "debugger/adapter.h"
#include "debugger/session.h"
#include "tests/support/gui_recording.h"
#include "tests/support/host_standin.h"

namespace {

using nlohmann::json;

constexpr const char* PROGRAM = R"(        cp      begun one
        call    loop back
loop    add     count count one
        be      loop zero zero
back    .data   0
begun   .data   0
count   .data   0
one     .data   1
zero    .data   0
)";

const std::string program = testing::TempDir() + "tovik-adapter-" + std::to_string(getpid());

class Adapter : public testing::Test {
  protected:
    adapter_t adapter;
    std::vector<std::string> cancels; // a message that comes while a way is gone, once the client knows of it
    json told = json::array();        // of progress and stops

    void keep(const std::vector<std::string>& texts) {
        for (const std::string& text : texts) {
            if (json message = json::parse(text); message["event"] != "output") {
                told.push_back(std::move(message));
            }
        }
    }

    json ask(const std::string& command, const json& arguments = json::object()) {
        told.clear();
        const json request = {
            {"type", "request"}, {"seq", 7}, {"command", command}, {"arguments", arguments}};
        keep(adapter_take(adapter, request.dump()));
        for (uint64_t now_us = 1; adapter.phase == phase_e::RUNNING; now_us += 10000) {
            keep(adapter_run(adapter, now_us).messages);
        }
        json response;
        for (const json& message : told) {
            response = message["type"] == "response" ? message : response;
        }
        return response;
    }

    // "progressStart, progressUpdate, progressEnd": each once, however often it came.
    std::string events() {
        std::string names;
        for (const json& message : told) {
            const std::string name = message["type"] == "event" ? message["event"] : message["type"];
            if (!names.ends_with(name)) {
                names += (names.empty() ? "" : ", ") + name;
            }
        }
        return names;
    }

    void SetUp() override {
        std::ofstream(program + ".k") << PROGRAM;
        adapter.go_on = [this](const std::vector<std::string>& messages) {
            keep(messages);
            bool goes_on = true;
            for (const std::string& cancel : cancels) {
                goes_on &= !adapter_interrupts(adapter, cancel);
            }
            return goes_on;
        };
        ask("initialize", {{"supportsProgressReporting", true}});
        ask("launch", {{"program", program + ".k"}, {"limit", 9000000}});
        ask("configurationDone");
        ASSERT_EQ(adapter.stop.why, stop_e::LIMIT);
        host_standin.stopwatch_step_us = 600'000; // each piece of a way takes as long
    }
    void TearDown() override {
        ask("disconnect");
        host_standin = {};
        recording = {};
        for (const char* const type : {".k", ".mif", ".labels"}) {
            std::filesystem::remove(program + type);
        }
    }
};

json cancel_of(const char* key, const json& value) {
    return {{"type", "request"}, {"seq", 8}, {"command", "cancel"}, {"arguments", {{key, value}}}};
}

TEST_F(Adapter, TellsOfLongWaysAndGivesThemUp) {
    const json search = {{"expression", "last write begun"}, {"context", "repl"}};
    json found = ask("evaluate", search);
    EXPECT_TRUE(found["success"]) << found;
    EXPECT_EQ(events(), "progressStart, progressUpdate, response, progressEnd");
    int percentage = -1;
    for (const json& message : told) {
        if (message["type"] == "event" && message["event"] != "progressEnd") {
            EXPECT_GE(message["body"]["percentage"], percentage);
            percentage = message["body"]["percentage"];
        }
    }
    EXPECT_GT(percentage, 50);
    EXPECT_LE(percentage, 100);
    EXPECT_EQ(told[0]["body"]["requestId"], 7);
    const moment_t now = history_now();

    // Where the program is can be said at once.
    const json top = ask("stackTrace", {{"threadId", 1}, {"levels", 1}});
    EXPECT_EQ(top["body"]["stackFrames"][0]["name"], "loop?");
    EXPECT_EQ(events(), "response");

    // Messages for others, and one for this.
    cancels = {cancel_of("requestId", 6).dump(), cancel_of("progressId", "way 1").dump(), "{", "[1]"};
    EXPECT_TRUE(ask("evaluate", search)["success"]);
    for (const json& cancel : {cancel_of("requestId", 7), cancel_of("progressId", "way 4"),
                               json({{"type", "request"}, {"seq", 8}, {"command", "pause"}})}) {
        cancels = {cancel.dump()};
        json refused = ask("evaluate", search);
        EXPECT_EQ(refused["message"], "cancelled") << cancel;
    }
    EXPECT_EQ(ask("tovik/lastWrite", {{"expression", "begun"}})["message"], "cancelled");
    EXPECT_EQ(history_now(), now);
    EXPECT_EQ(ask("stackTrace", {{"threadId", 1}})["body"]["stackFrames"][0]["name"], "loop?");

    // Going back, the way ends where it has come to.
    ask("reverseContinue");
    EXPECT_EQ(told.back()["body"]["reason"], "pause");
    EXPECT_GT(history_now(), 0);
    cancels.clear();
    session_go(motion_e::REVERSE_CONTINUE);
    static_cast<void>(session_run(1));
    EXPECT_EQ(ask("tovik/switch", {{"number", 0}})["message"], "the program is going back");
    ask("reverseContinue");
    EXPECT_EQ(events(), "response, progressStart, progressUpdate, progressEnd, stopped");
    EXPECT_EQ(history_now(), 0);
    EXPECT_TRUE(ask("tovik/goTo", {{"moment", now}})["success"]);
    EXPECT_EQ(history_now(), now);
    EXPECT_EQ(ask("stackTrace", {{"threadId", 1}})["body"]["stackFrames"][0]["name"], "loop");
}

} // namespace
