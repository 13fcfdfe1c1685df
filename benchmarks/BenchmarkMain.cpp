// What every benchmark program does first. The rows stand in the files beside this one.

#include <QByteArray>

#include <limits>

#include <benchmark/benchmark.h>
#include <malloc.h>

int main(int argc, char **argv)
{
    // Memory that was given back stays with the program. Otherwise each side would be charged for
    // pages by chance, whenever the top of the heap had just been returned to the system.
    mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
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
