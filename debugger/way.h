#pragma once

// Long ways in pieces. A function that returns a way_t is a coroutine: it pauses where it says so, with all
// that it has in hand, and goes on from there when it is next its turn. One can wait for another; they pause
// and go on together.
//
//   way_t<int> count() {
//       for (...) { co_await pause_t{}; ... }
//       co_return 7;
//   }
//   way_t<> report() {
//       const int counted = co_await count();
//       ...
//   }
//
// Calling such a function does nothing yet. Whoever has its way goes it, to the end at once with `finish`, or
// piece by piece, and does something else in between:
//
//   way_t<int> way = count();
//   while (!way.go_on()) { ... }
//   use(way.result());
//
// Its arguments must live as long as the way, so those that are not objects of whoever waits for it are taken
// by value. A way that is dropped before its end is left as by an exception: all that it has in hand is
// destroyed, the innermost first.

#include <exception>
#include <optional>
#include <utility>

#if __has_include(<coroutine>)
#include <coroutine>
namespace coroutines = std;
#else // an older library
#pragma clang diagnostic ignored "-Wdeprecated-experimental-coroutine"
#include <experimental/coroutine>
namespace coroutines = std::experimental;
#endif

// How far those have come that wait for each other.
struct trail_t {
    coroutines::coroutine_handle<> innermost; // the one that goes on next; none at the end
    bool paused = false;
};

// What each coroutine has beside its own variables. It begins and ends with handing over to whoever goes the
// way, who then goes on with the innermost: so the depth of the stack does not grow with the length of a way.
struct promise_t {
    trail_t own;
    trail_t* trail = &own;             // that of the outermost
    coroutines::coroutine_handle<> up; // who waits for the end
    std::exception_ptr failure;

    struct end_t {
        [[nodiscard]] bool await_ready() const noexcept { return false; }
        template <typename any_t>
        void await_suspend(coroutines::coroutine_handle<any_t> here) const noexcept {
            here.promise().trail->innermost = here.promise().up;
        }
        void await_resume() const noexcept {}
    };

    [[nodiscard]] coroutines::suspend_always initial_suspend() const noexcept { return {}; }
    [[nodiscard]] end_t final_suspend() const noexcept { return {}; }
    void unhandled_exception() noexcept { failure = std::current_exception(); }
};

template <typename result_t> struct promise_of_t : promise_t {
    std::optional<result_t> result;
    void return_value(result_t value) { result = std::move(value); }
    result_t take() { return std::move(*result); }
};

template <> struct promise_of_t<void> : promise_t {
    void return_void() const noexcept {}
    void take() const noexcept {}
};

// co_await pause_t{}: whoever goes the way may do something else.
struct pause_t {
    [[nodiscard]] bool await_ready() const noexcept { return false; }
    template <typename any_t> void await_suspend(coroutines::coroutine_handle<any_t> here) const noexcept {
        here.promise().trail->paused = true;
    }
    void await_resume() const noexcept {}
};

template <typename result_t = void> class [[nodiscard]] way_t {
  public:
    struct promise_type : promise_of_t<result_t> {
        way_t get_return_object() { return way_t(handle_t::from_promise(*this)); }
    };
    using handle_t = coroutines::coroutine_handle<promise_type>;

    explicit way_t(handle_t here) noexcept : here_(here) { here.promise().own.innermost = here; }
    way_t(way_t&& other) noexcept : here_(std::exchange(other.here_, nullptr)) {}
    way_t& operator=(way_t&& other) noexcept {
        std::swap(here_, other.here_);
        return *this;
    }
    ~way_t() {
        if (here_) {
            here_.destroy();
        }
    }

    // Goes on until the next pause. Returns whether this was the end.
    bool go_on() {
        trail_t& trail = here_.promise().own;
        trail.paused = false;
        while (!trail.paused && trail.innermost) {
            trail.innermost.resume();
        }
        return !trail.innermost;
    }

    // At the end, and once: what it has returned. Throws what it has thrown.
    result_t result() {
        if (here_.promise().failure) {
            std::rethrow_exception(here_.promise().failure);
        }
        return here_.promise().take();
    }

    // For who waits for it with co_await.
    [[nodiscard]] bool await_ready() const noexcept { return false; }
    template <typename any_t> void await_suspend(coroutines::coroutine_handle<any_t> up) noexcept {
        here_.promise().up = up;
        here_.promise().trail = up.promise().trail;
        here_.promise().trail->innermost = here_;
    }
    result_t await_resume() { return result(); }

  private:
    handle_t here_;
};

// Goes a way to its end.
template <typename result_t> result_t finish(way_t<result_t> way) {
    while (!way.go_on()) {
    }
    return way.result();
}
