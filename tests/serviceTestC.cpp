// The C interface: what serviceTestC.c does, on simulated interfaces.
#include "tests/serviceTestC.h"

#include "tests/serviceTest.h"

void failed(const char* file, int line, const char* what) {
    ADD_FAILURE_AT(file, line) << what;
}

namespace {

class ServiceInC : public ServiceTest {};

TEST_F(ServiceInC, FindsAndLocksDevices) {
    cFindsAndLocksDevices(folder.c_str());
}
TEST_F(ServiceInC, ReadsAndWritesImages) {
    cReadsAndWritesImages(folder.c_str());
}
TEST_F(ServiceInC, ProgramsAndReadsTheFlash) {
    cProgramsAndReadsTheFlash(folder.c_str());
}
TEST_F(ServiceInC, RewritesTheConfiguration) {
    cRewritesTheConfiguration(folder.c_str());
}
TEST_F(ServiceInC, TalksToTheNeuron) {
    cTalksToTheNeuron();
}
TEST_F(ServiceInC, LooksForWhatIsWrong) {
    cLooksForWhatIsWrong();
}
TEST_F(ServiceInC, IsToldOfAFailedProgram) {
    plug("lose-program=7,lose-program=17,lose-program=18");
    cIsToldOfAFailedProgram();
}
TEST_F(ServiceInC, IsStoppedByAnotherThread) {
    cIsStoppedByAnotherThread();
}
TEST_F(ServiceInC, IsRefusedNulls) {
    cIsRefusedNulls();
}
TEST_F(ServiceInC, MayBeOlderOrNewer) {
    cMayBeOlderOrNewer();
}

}  // namespace
