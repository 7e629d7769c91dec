#ifndef MORVIK_EMU_VERBS_H
#define MORVIK_EMU_VERBS_H

#include "EmuCli.h"

// Each verb of morvik-emu, in a source file of its own under verbs/.
namespace emucli {

int runInit(const Verb& verb, int argc, char** argv);
int runShow(const Verb& verb, int argc, char** argv);
int runDiff(const Verb& verb, int argc, char** argv);
int runFault(const Verb& verb, int argc, char** argv);
int runPlatform(const Verb& verb, int argc, char** argv);
int runSets(const Verb& verb, int argc, char** argv);
int runExport(const Verb& verb, int argc, char** argv);
int runImport(const Verb& verb, int argc, char** argv);
int runLog(const Verb& verb, int argc, char** argv);
int runDoctor(const Verb& verb, int argc, char** argv);
int runTimeline(const Verb& verb, int argc, char** argv);
int runExplore(const Verb& verb, int argc, char** argv);

}  // namespace emucli

#endif
