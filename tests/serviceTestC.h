// What a C program does with the C interface, each on the interface that the fixture has plugged in.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

void cFindsAndLocksDevices(const char* folder);
void cReadsAndWritesImages(const char* folder);
void cProgramsAndReadsTheFlash(const char* folder);
void cRewritesTheConfiguration(const char* folder);
void cTalksToTheNeuron(void);
void cLooksForWhatIsWrong(void);
void cPutsBackWhatWasThere(void);
void cIsToldOfAFailedProgram(void);
void cIsStoppedByAnotherThread(void);
void cIsRefusedNulls(void);
void cMayBeOlderOrNewer(void);

/// Of the fixture: a check that does not hold.
void failed(const char* file, int line, const char* what);

#ifdef __cplusplus
}
#endif
