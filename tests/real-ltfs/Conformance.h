#pragma once

// The simulator's mkltfs, ltfs and ltfsck beside the real ones: the same
// case on a real file-backed cartridge and on a simulated drive in the same
// state, and what each printed once what differs by nature is masked.

#include "real-ltfs/RealLtfs.h"

namespace tapedesk::test::real {

// The drive the comparison uses, in the library and in the simulator.
inline const QString kConformanceDrive = QStringLiteral("rltc");

struct Comparison
{
    int realStatus = -1;
    int simStatus = -1;
    QStringList realLines;
    QStringList simLines;
    QString report() const;
};

// The rows: "setup" (a cartridge state word, see Conformance.cpp) and
// "command" (the tool and its arguments, DEV for the device).
void addConformanceCases();
Comparison compareWithSimulator(Library &library, const QStringList &setup, const QString &command);

// Standard error as compared: the backend's own lines out, run-dependent values masked.
QStringList masked(const QString &stderrText, const QString &cartridge);

} // namespace tapedesk::test::real
