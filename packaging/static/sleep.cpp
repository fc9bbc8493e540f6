// The one function of Poco's that is linked: Debian has that library only as a shared one. A program that brings an
// archive of it gets the archive's.
#include <Poco/Thread.h>

#include <chrono>
#include <thread>

__attribute__((weak)) void Poco::ThreadImpl::sleepImpl(long milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}
