// The debug adapter where time has to stand still: what a client hears of long ways through the history.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <unistd.h>

#include "core/stops.h"
#include "debugger/adapter.h"
#include "debugger/session.h"
#include "host/journal.h"
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
    std::vector<std::string> cancels; // messages that come while a way is under way
    json told = json::array();        // of progress and stops

    void keep(const std::vector<std::string>& texts) {
        for (const std::string& text : texts) {
            if (json message = json::parse(text); message["event"] != "output") {
                told.push_back(std::move(message));
            }
        }
    }

    void send(int seq, const std::string& command, const json& arguments = json::object()) {
        const json request = {
            {"type", "request"}, {"seq", seq}, {"command", command}, {"arguments", arguments}};
        keep(adapter_take(adapter, request.dump()));
    }

    void run_on() {
        uint64_t now_us = 1;
        for (; adapter_is_on_its_way(adapter) || adapter.phase == phase_e::RUNNING; now_us += 10000) {
            keep(adapter_run(adapter, now_us).messages);
        }
    }

    json ask(const std::string& command, const json& arguments = json::object()) {
        told.clear();
        send(7, command, arguments);
        for (const std::string& cancel : cancels) {
            keep(adapter_take(adapter, cancel));
        }
        run_on();
        const auto response = std::find_if(told.begin(), told.end(), [](const json& message) {
            return message["type"] == "response" && message["request_seq"] == 7;
        });
        return response == told.end() ? json() : *response;
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
    static_cast<void>(finish(session_run(1)));
    EXPECT_EQ(ask("tovik/switch", {{"number", 0}})["message"], "the program is going back");
    ask("reverseContinue");
    EXPECT_EQ(events(), "response, progressStart, progressUpdate, progressEnd, stopped");
    EXPECT_EQ(history_now(), 0);
    EXPECT_TRUE(ask("tovik/goTo", {{"moment", now}})["success"]);
    EXPECT_EQ(history_now(), now);
    EXPECT_EQ(ask("stackTrace", {{"threadId", 1}})["body"]["stackFrames"][0]["name"], "loop");
}

TEST_F(Adapter, MessagesWaitForALongWayOrEndIt) {
    const json search = {{"expression", "last write begun"}, {"context", "repl"}};
    const auto responses = [&] {
        std::string text;
        for (const json& message : told) {
            if (message["type"] == "response") {
                text += std::to_string(message["request_seq"].get<int>()) + (message["success"] ? " " : "! ");
            }
        }
        return text;
    };
    const auto begin_search = [&] {
        told.clear();
        send(1, "evaluate", search);
        for (int piece = 0; piece < 9; ++piece) {
            keep(adapter_run(adapter, 1).messages);
        }
        EXPECT_TRUE(adapter_is_on_its_way(adapter));
    };
    adapter.board.wanted = true;
    const moment_t now = history_now();
    begin_search();
    send(2, "threads");
    send(3, "evaluate", search);
    send(4, "cancel", {{"requestId", 3}}); // of the one that waits
    EXPECT_EQ(events(), "progressStart, progressUpdate") << "no board of the past";
    run_on();
    EXPECT_EQ(responses(), "1 2 3! 4 ");
    EXPECT_EQ(events().substr(events().size() - 11), "tovik/board");

    // Dropped, it leaves a board that can go on.
    begin_search();
    adapter.under_way.reset();
    EXPECT_EQ(stops, nullptr);
    EXPECT_EQ(simulator.breakpoint, -1);
    EXPECT_FALSE(ask("tovik/goTo", {{"moment", now}}).is_null());
    EXPECT_FALSE(in_the_past());
    EXPECT_EQ(history_now(), now);

    begin_search();
    send(2, "restart");
    run_on();
    EXPECT_EQ(responses(), "1! 2 ");
    EXPECT_EQ(adapter.stop.why, stop_e::LIMIT);
    begin_search();
    send(2, "disconnect");
    run_on();
    EXPECT_EQ(responses(), "1! 2 ");
    EXPECT_TRUE(adapter.over);
}

} // namespace
