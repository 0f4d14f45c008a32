#pragma once

#include "engine/memory_policy.h"

#include <QByteArray>
#include <QtGlobal>
#include <benchmark/benchmark.h>

/// Runs the benchmarks inside an application object App (offscreen unless asked
/// otherwise), with the memory policy of the application they measure.
template <typename App> int runQtBenchmarks(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    clarovi::engine::keepFreedMemoryForReuse();
    App app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
