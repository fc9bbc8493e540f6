// The simulated interfaces of this process: which handle, device number or LDV name is whose. Each works
// under a lock of its own, so threads on different ones do not wait for each other.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "platform/cyusbserial.h"
#include "sim/rig.h"

namespace sim {

class Bus {
public:
    static Bus& instance();

    /// Makes the rigs up to that one if need be, without boards.
    Rig& rig(unsigned index);
    Rig& first() { return rig(0); }
    /// All, in the order of their descriptions.
    std::vector<Rig*> rigs();

    /// A test has set the scene: the environment is not asked any more.
    void setByTest() { isSetByTest_ = true; }
    /// Attaches what TAVO_SIM describes, one interface a line; once, at the first call of a seam function.
    void setUpFromEnvironment();

    /// Whose handle that is; the first one's when nobody's, which then refuses it.
    Rig& ownerOf(const void* handle);
    void add(const void* handle, Rig& owner);
    void remove(const void* handle);

    /// The interface behind a device number: an index into the list made last, good until the next one.
    struct Numbered {
        Rig& rig;
        bool isListed;
    };
    Numbered numbered(UINT8 number);
    /// Makes the list anew.
    /// @return the number of interfaces in it
    UINT8 renumber();
    void forgetNumbers();

private:
    void readEnvironment();

    std::once_flag environmentRead_;
    std::atomic<bool> isSetByTest_ = false;
    std::mutex mutex_;  // of what follows; never held while an interface works
    std::vector<std::unique_ptr<Rig>> rigs_;
    std::map<const void*, Rig*> owners_;
    std::optional<std::vector<Rig*>> numbers_;
};

}  // namespace sim
