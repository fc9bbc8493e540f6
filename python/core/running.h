// Runs an operation of the service layer for a Python thread: the GIL free, signals seen, callbacks on that thread.
#pragma once

#include <pybind11/pybind11.h>

#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>
#include <optional>
#include <utility>

#include "tavo/service/operation.h"

namespace binding {

namespace py = pybind11;

/// The operation works in a thread of its own, since only Python's main thread learns of signals and an operation may
/// be silent for minutes (a chip erase). The thread that called waits, looks for signals and for the caller's event
/// every 50 ms, and runs the callbacks. What Python raises meanwhile (KeyboardInterrupt, from a callback) cancels the
/// operation; it is raised when everything is released, with what became of the device as its cause.
class Run {
public:
    /// @param progress  None, or called with an Event
    /// @param cancel    None, or an object with is_set(), such as threading.Event
    Run(py::object progress, py::object cancel);
    ~Run();
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    /// Throws what work throws, or py::error_already_set.
    template <typename Work>
    auto operator()(Work work) {
        std::optional<decltype(work(std::declval<const tavo::Control&>()))> result;
        carryOut([&](const tavo::Control& control) { result.emplace(work(control)); });
        return std::move(*result);
    }
    /// From the operation's thread: has it done on the caller's, with the GIL, and waits for it.
    void onCaller(const std::function<void()>& task);

private:
    void carryOut(const std::function<void(const tavo::Control&)>& work);
    void serve();
    void look(const std::function<void()>* task);
    void end(const py::error_already_set& error);
    void raise();

    py::object progress_;
    py::object cancel_;
    tavo::CancelToken token_;
    std::optional<py::error_already_set> raised_;
    std::exception_ptr failure_;

    std::mutex mutex_;  // of what follows
    std::condition_variable changed_;
    const std::function<void()>* task_ = nullptr;
    bool finished_ = false;
};

/// At the interpreter's exit: cancels what daemon threads still do and waits until their devices are released.
void endAllRuns();

}  // namespace binding
