// What every benchmark program does first. The rows stand in the files beside this one.

#include <QByteArray>

#include <benchmark/benchmark.h>

int main(int argc, char **argv)
{
    // The lines about keys would drown the table.
    qputenv("QT_LOGGING_RULES", "default.debug=false");
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
