# What every target of this project is compiled with. Warnings are errors where the project is
# developed; headers of Qt come in as system headers and are not judged.
add_library(TesselCompileOptions INTERFACE)
target_compile_options(TesselCompileOptions INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion $<$<BOOL:${TESSEL_WARNINGS_AS_ERRORS}>:-Werror>
    $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wsuggest-override>)
target_compile_definitions(TesselCompileOptions INTERFACE
    QT_NO_KEYWORDS QT_NO_CAST_TO_ASCII QT_DEPRECATED_WARNINGS QT_MESSAGELOGCONTEXT)
# On 32 bits too, fstat() tells the size of an object that is too big, instead of failing at it.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    target_compile_definitions(TesselCompileOptions INTERFACE _FILE_OFFSET_BITS=64)
endif()
if(TESSEL_SANITIZE)
    target_compile_options(TesselCompileOptions INTERFACE
        -fsanitize=${TESSEL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(TesselCompileOptions INTERFACE -fsanitize=${TESSEL_SANITIZE})
    # g++ warns that its thread sanitizer does not model fences. All accesses that the fences order
    # are atomic, so it has nothing to report either way.
    target_compile_options(TesselCompileOptions INTERFACE
        $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-tsan>)
endif()
# For library and tool alone: the tests are no matter of coverage. Threads count together, and so do
# processes, which add to one file when they end.
add_library(TesselCoverage INTERFACE)
if(TESSEL_COVERAGE)
    target_compile_options(TesselCoverage INTERFACE -O0 -g1 --coverage -fprofile-update=atomic)
    target_link_options(TesselCoverage INTERFACE --coverage)
    # Without optimisation, reading the headers of Qt is most of the work.
    target_precompile_headers(TesselCoverage INTERFACE
        <QDebug> <QDir> <QFile> <QFileInfo> <QHash> <QJsonArray> <QJsonDocument> <QJsonObject> <QMap> <QObject>
        <QRegularExpression> <QSharedPointer> <QString> <QStringList> <QTextStream> <QVariant> <QVector>
        <algorithm> <functional> <memory> <optional> <vector>)
endif()
