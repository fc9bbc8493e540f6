// The simulated interfaces of this process: which handle, device number or LDV name is whose. Each works
// under a lock of its own, so threads on different ones do not wait for each other.
#pragma once

#include <array>
#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
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

    /// The interface behind a device number. It keeps its number for good, as in the USB layer: a list made in one
    /// thread must not move a number that another one is about to open.
    struct Number {
        Rig* rig;
        bool isListed = false;  ///< attached when the list was made last
    };
    Number numbered(UINT8 number);
    /// Gives numbers to those that have appeared.
    /// @return one more than the highest number of an interface that is attached
    UINT8 renumber();
    void forgetNumbers();

private:
    void readEnvironment();

    std::once_flag environmentRead_;
    std::atomic<bool> isSetByTest_ = false;
    // Many small tables, and shared locks: threads on different interfaces neither wait for each other here, nor are
    // they put in an order by it that would hide their races from a race detector.
    struct Owners {
        std::mutex mutex;
        std::map<const void*, Rig*> byHandle;
    };
    Owners& ownersNear(const void* handle);
    std::array<Owners, 64> owners_;

    std::shared_mutex mutex_;  // of what follows; never held while an interface works
    std::vector<std::unique_ptr<Rig>> rigs_;
    std::optional<std::vector<Number>> numbers_;  // of those that were ever attached
};

}  // namespace sim
