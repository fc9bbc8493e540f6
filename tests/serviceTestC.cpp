// The C interface: what serviceTestC.c does, on simulated interfaces.
#include "tests/serviceTestC.h"

#include <new>

#include "tavo/service.h"
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
TEST_F(ServiceInC, PutsBackWhatWasThere) {
    cPutsBackWhatWasThere();
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

/// What becomes of a program whose observer throws.
tavo_error errorOf(tavo_observer observer) {
    tavo_error error{};
    error.size = sizeof error;
    tavo_device* device = nullptr;
    EXPECT_EQ(tavo_open_device(nullptr, 0, nullptr, &device, &error), TAVO_OK) << error.message;
    tavo_control control{};
    control.size = sizeof control;
    control.observer = observer;
    EXPECT_EQ(tavo_erase_flash(device, nullptr, &control, nullptr, &error), TAVO_PROBLEM_INTERNAL);
    tavo_close_device(device);
    return error;
}

TEST_F(ServiceInC, LetsNoExceptionOutAndClaimsNothingThen) {
    const tavo_error memory = errorOf([](const tavo_event*, void*) { throw std::bad_alloc(); });
    EXPECT_STREQ(memory.message, "out of memory");
    const tavo_error number = errorOf([](const tavo_event*, void*) { throw 42; });
    EXPECT_STREQ(number.message, "an unknown exception");
    EXPECT_EQ(number.state.flash, unsigned{TAVO_FLASH_UNCERTAIN});
    EXPECT_EQ(number.state.reset_line, unsigned{TAVO_LINE_UNKNOWN});
    EXPECT_THAT(number.state.text, testing::HasSubstr("not known"));
}

}  // namespace
