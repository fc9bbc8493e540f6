#include "sim/bus.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include "sim/seam.h"

namespace sim {

Bus& Bus::instance() {
    static Bus* const own = new Bus;  // never destroyed: programs may still call the seam while they exit
    return *own;
}

Rig& rig(unsigned index) {
    return Bus::instance().rig(index);
}

Rig& Bus::rig(unsigned index) {
    const std::lock_guard lock(mutex_);
    while (rigs_.size() <= index) rigs_.push_back(std::make_unique<Rig>(static_cast<unsigned>(rigs_.size())));
    return *rigs_[index];
}

std::vector<Rig*> Bus::rigs() {
    first();
    const std::shared_lock lock(mutex_);
    std::vector<Rig*> all;
    for (const auto& each : rigs_) all.push_back(each.get());
    return all;
}

void Bus::setUpFromEnvironment() {
    std::call_once(environmentRead_, [this] {
        if (!isSetByTest_) readEnvironment();
    });
}

void Bus::readEnvironment() {
    const char* descriptions = std::getenv("TAVO_SIM");
    std::istringstream lines(descriptions != nullptr ? descriptions : "");
    std::string description;
    for (unsigned index = 0; std::getline(lines, description); ++index) {
        try {
            Seam::setUpFromEnvironment(rig(index), parseOptions(description));
        } catch (const std::exception& error) {
            std::fprintf(stderr, "%s\n", error.what());
        }
    }
}

Bus::Owners& Bus::ownersNear(const void* handle) {
    constexpr std::uint64_t kGoldenRatio = 0x9E37'79B9'7F4A'7C15;  // spreads neighbours
    return owners_[reinterpret_cast<std::uintptr_t>(handle) * kGoldenRatio >> 58];
}

Rig& Bus::ownerOf(const void* handle) {
    Owners& owners = ownersNear(handle);
    const std::lock_guard lock(owners.mutex);
    const auto found = owners.byHandle.find(handle);
    return found == owners.byHandle.end() ? first() : *found->second;
}

void Bus::add(const void* handle, Rig& owner) {
    Owners& owners = ownersNear(handle);
    const std::lock_guard lock(owners.mutex);
    owners.byHandle[handle] = &owner;
}

void Bus::remove(const void* handle) {
    Owners& owners = ownersNear(handle);
    const std::lock_guard lock(owners.mutex);
    owners.byHandle.erase(handle);
}

UINT8 Bus::renumber() {
    std::vector<Rig*> attached = rigs();
    std::erase_if(attached, [](Rig* each) { return !Seam::isAttached(*each); });
    const std::lock_guard lock(mutex_);
    if (!numbers_) numbers_.emplace();
    for (Number& each : *numbers_) each.isListed = false;
    std::size_t count = 0;
    for (Rig* rig : attached) {
        auto own =
            std::find_if(numbers_->begin(), numbers_->end(), [&](const Number& each) { return each.rig == rig; });
        if (own == numbers_->end()) own = numbers_->insert(own, {rig});
        own->isListed = true;
        count = std::max<std::size_t>(count, own - numbers_->begin() + 1);
    }
    return static_cast<UINT8>(count);
}

Bus::Number Bus::numbered(UINT8 number) {
    std::shared_lock lock(mutex_);
    while (!numbers_) {  // a host program may know the number from elsewhere
        lock.unlock();
        renumber();
        lock.lock();
    }
    if (number < numbers_->size()) return (*numbers_)[number];
    lock.unlock();
    return {&first()};
}

void Bus::forgetNumbers() {
    const std::lock_guard lock(mutex_);
    numbers_.reset();
}

}  // namespace sim
