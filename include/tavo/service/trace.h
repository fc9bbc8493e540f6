// Tells each transfer to the interfaces. For programs that link tavo-trace; not part of libtavo-service.
#pragma once

#include <functional>
#include <string>

namespace tavo {

/// While it lives, what the thread that made it sends to its interface, and what comes back, is told to
/// teller: one call, one line. One at a time in a thread, and destroyed by the thread that made it.
class TransferTrace {
public:
    using Teller = std::function<void(const std::string& transfer)>;
    explicit TransferTrace(Teller teller);
    ~TransferTrace();
    TransferTrace(const TransferTrace&) = delete;
    TransferTrace& operator=(const TransferTrace&) = delete;

private:
    Teller teller_;
};

}  // namespace tavo
