#include "python/core/running.h"

#include <atomic>
#include <chrono>
#include <thread>

#include "python/core/convert.h"

namespace binding {
namespace {

constexpr auto kLook = std::chrono::milliseconds(50);
/// A chip erase is waited for, also at the exit; an interpreter that never ends would be worse than what is left then.
constexpr auto kLongestExit = std::chrono::minutes(5);

/// Of this process. Changed with the GIL held only, so that a thread that has counted itself off is back in Python.
struct Running {
    std::atomic<bool> ending = false;
    std::atomic<unsigned> runs = 0;
};
Running running;

/// Whatever is_set() gives, as Python's own if takes it.
bool isSet(const py::object& cancel) {
    const int set = PyObject_IsTrue(cancel.attr("is_set")().ptr());
    if (set < 0) throw py::error_already_set();
    return set != 0;
}

}  // namespace

Run::Run(py::object progress, py::object cancel) : progress_(std::move(progress)), cancel_(std::move(cancel)) {
    if (running.ending) throw std::runtime_error("the interpreter is ending: no operation is begun any more");
    ++running.runs;
}

Run::~Run() {
    --running.runs;
}

void Run::onCaller(const std::function<void()>& task) {
    std::unique_lock lock(mutex_);
    task_ = &task;
    changed_.notify_all();
    changed_.wait(lock, [this] { return task_ == nullptr; });
}

void Run::carryOut(const std::function<void(const tavo::Control&)>& work) {
    tavo::Control control{{}, &token_};
    if (!progress_.is_none()) {
        control.observer = [this](const tavo::Event& event) { onCaller([&] { progress_(toPython(event)); }); };
    }
    std::thread worker([&] {
        try {
            work(control);
        } catch (...) {
            failure_ = std::current_exception();
        }
        const std::lock_guard lock(mutex_);
        finished_ = true;
        changed_.notify_all();
    });
    serve();
    {
        const py::gil_scoped_release released;
        worker.join();
    }
    if (raised_) raise();
    if (failure_) std::rethrow_exception(failure_);
}

void Run::serve() {
    for (bool finished = false; !finished;) {
        const std::function<void()>* task = nullptr;
        {
            const py::gil_scoped_release released;
            std::unique_lock lock(mutex_);
            changed_.wait_for(lock, kLook, [this] { return finished_ || task_ != nullptr; });
            finished = finished_;
            task = task_;
        }
        look(task);
        if (task == nullptr) continue;
        const py::gil_scoped_release released;
        const std::lock_guard lock(mutex_);
        task_ = nullptr;
        changed_.notify_all();
    }
}

void Run::look(const std::function<void()>* task) {
    if (running.ending) token_.cancel();
    try {
        if (PyErr_CheckSignals() != 0) throw py::error_already_set();
        if (raised_) return;
        if (!cancel_.is_none() && isSet(cancel_)) token_.cancel();
        if (task != nullptr) (*task)();
    } catch (py::error_already_set& error) {
        end(error);
    } catch (const std::exception& error) {  // until the worker is joined, nothing may leave here
        PyErr_SetString(PyExc_RuntimeError, error.what());
        end(py::error_already_set());
    }
}

void Run::end(const py::error_already_set& error) {
    if (!raised_) raised_.emplace(error);  // a second Ctrl-C changes nothing: the releases are under way
    token_.cancel();
}

void Run::raise() {
    try {
        if (failure_) std::rethrow_exception(failure_);
    } catch (const tavo::Error& error) {
        PyException_SetCause(raised_->value().ptr(), toPython(error).release().ptr());
    } catch (const std::exception&) {  // the device is not in it
    }
    throw py::error_already_set(*raised_);
}

void endAllRuns() {
    running.ending = true;
    const auto latest = std::chrono::steady_clock::now() + kLongestExit;
    while (running.runs > 0 && std::chrono::steady_clock::now() < latest) {
        const py::gil_scoped_release released;
        std::this_thread::sleep_for(kLook);
    }
}

}  // namespace binding
