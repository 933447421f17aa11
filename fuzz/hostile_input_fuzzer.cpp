// libFuzzer entry: every input goes through HostileInput's checks; a broken check is a finding.

#include <QTemporaryDir>
#include <cstdio>
#include <cstdlib>

#include "HostileInput.h"

namespace {

HostileInput* checker = nullptr;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // Both live until the process ends: the article manager they start cannot be started twice.
    static QTemporaryDir folder;
    static HostileInput input(folder.path());
    if (!input.StartError().isEmpty()) {
        std::fprintf(stderr, "hostile_input_fuzzer: %s\n", qPrintable(input.StartError()));
        std::abort();
    }
    checker = &input;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    const QString problem = checker->Check(
        QByteArray::fromRawData(reinterpret_cast<const char*>(data), static_cast<int>(size)));
    if (!problem.isEmpty()) {
        std::fprintf(stderr, "hostile_input_fuzzer: %s\n", problem.toUtf8().constData());
        std::abort();
    }
    return 0;
}
