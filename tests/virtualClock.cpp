// Every wait of the library and of the platform ends here: simulated time passes, real time does not.
#include <Poco/Thread.h>

#include "sim/rig.h"

void Poco::ThreadImpl::sleepImpl(long milliseconds) {
    sim::rig().sleep(milliseconds);
}
