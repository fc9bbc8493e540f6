#include "sim/bus.h"

#include <algorithm>
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
    const std::lock_guard lock(mutex_);
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

Rig& Bus::ownerOf(const void* handle) {
    Rig& otherwise = first();
    const std::lock_guard lock(mutex_);
    const auto found = owners_.find(handle);
    return found == owners_.end() ? otherwise : *found->second;
}

void Bus::add(const void* handle, Rig& owner) {
    const std::lock_guard lock(mutex_);
    owners_[handle] = &owner;
}

void Bus::remove(const void* handle) {
    const std::lock_guard lock(mutex_);
    owners_.erase(handle);
}

UINT8 Bus::renumber() {
    std::vector<Rig*> attached = rigs();
    std::erase_if(attached, [](Rig* each) { return !Seam::isAttached(*each); });
    const std::lock_guard lock(mutex_);
    numbers_ = std::move(attached);
    return static_cast<UINT8>(numbers_->size());
}

Bus::Numbered Bus::numbered(UINT8 number) {
    for (Rig& otherwise = first();; renumber()) {  // a host program may know the number from elsewhere
        const std::lock_guard lock(mutex_);
        if (!numbers_) continue;
        const bool isListed = number < numbers_->size();
        return {isListed ? *(*numbers_)[number] : otherwise, isListed};
    }
}

void Bus::forgetNumbers() {
    const std::lock_guard lock(mutex_);
    numbers_.reset();
}

}  // namespace sim
