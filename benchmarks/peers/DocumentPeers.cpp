// Reading and writing the text of 10,000 leaves with twelve properties each, beside the libraries
// that a user would take instead. Each holds the same content; what differs is told in README.md.

#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Descriptions.h"

#include <QJsonDocument>
#include <QTemporaryDir>

#include <KConfig>
#include <KConfigGroup>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>
#include <libyang/libyang.h>
#include <malloc.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <nlohmann/json.hpp>

namespace {

constexpr int leafCount = 10000;

const QByteArray &configurationText()
{
    static const QByteArray text =
        QJsonDocument(Descriptions::tree(leafCount, Descriptions::configurationLeaf))
            .toJson(QJsonDocument::Compact);
    return text;
}

double heapInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
}

/// Bytes that the result of @p parse keeps, for a leaf. The first run leaves out what is made once
/// for a program.
template <class Parse>
void countHeap(benchmark::State &state, const Parse &parse)
{
    {
        const auto warmUp = parse();
        benchmark::DoNotOptimize(warmUp);
    }
    const double before = heapInUse();
    const auto result = parse();
    benchmark::DoNotOptimize(result);
    state.counters["heapPerLeaf"] = (heapInUse() - before) / leafCount;
}

/// Times @p parse and the release of what it made.
template <class Parse>
void measureParsing(benchmark::State &state, const Parse &parse)
{
    for (auto _ : state) {
        const auto result = parse();
        benchmark::DoNotOptimize(result);
    }
    countHeap(state, parse);
}

// Tessel, and the toolkit alone.

void parseConfiguration(benchmark::State &state)
{
    const ConfigurationAndProcessDataParser parser;
    measureParsing(state, [&parser] {
        return parser.parseFromByteArray(configurationText(), QStringLiteral("config.json"));
    });
}

void documentFromConfiguration(benchmark::State &state)
{
    measureParsing(state, [] { return QJsonDocument::fromJson(configurationText()); });
}

void frame(benchmark::State &state)
{
    const ConfigurationAndProcessDataParser parser;
    const auto root = parser.parseFromByteArray(configurationText(), QStringLiteral("config.json"));
    QByteArray text;
    for (auto _ : state) {
        parser.frameToByteArray(root, text, QJsonDocument::Compact);
        benchmark::DoNotOptimize(text);
    }
}

void documentToText(benchmark::State &state)
{
    const QJsonDocument document = QJsonDocument::fromJson(configurationText());
    for (auto _ : state) {
        benchmark::DoNotOptimize(document.toJson(QJsonDocument::Compact));
    }
}

// RapidJSON and nlohmann-json: documents without meaning, as QJsonDocument.

std::unique_ptr<rapidjson::Document> parseWithRapidJson()
{
    auto document = std::make_unique<rapidjson::Document>();
    document->Parse(configurationText().constData(),
                    static_cast<std::size_t>(configurationText().size()));
    return document;
}

void rapidJsonParse(benchmark::State &state)
{
    measureParsing(state, parseWithRapidJson);
}

void rapidJsonFrame(benchmark::State &state)
{
    const auto document = parseWithRapidJson();
    for (auto _ : state) {
        rapidjson::StringBuffer text;
        rapidjson::Writer<rapidjson::StringBuffer> writer(text);
        document->Accept(writer);
        benchmark::DoNotOptimize(text.GetString());
    }
}

nlohmann::json parseWithNlohmann()
{
    return nlohmann::json::parse(configurationText().cbegin(), configurationText().cend());
}

void nlohmannParse(benchmark::State &state)
{
    measureParsing(state, parseWithNlohmann);
}

void nlohmannFrame(benchmark::State &state)
{
    const auto document = parseWithNlohmann();
    for (auto _ : state) {
        benchmark::DoNotOptimize(document.dump());
    }
}

// KConfig: a group for a leaf, in a file; it has no way without one.

class ConfigurationFile
{
public:
    ConfigurationFile()
    {
        KConfig config(path(), KConfig::SimpleConfig);
        for (int position = 0; position < leafCount; ++position) {
            KConfigGroup group(&config, QStringLiteral("leaf%1").arg(position));
            const QJsonObject leaf = Descriptions::configurationLeaf(position);
            for (auto member = leaf.constBegin(); member != leaf.constEnd(); ++member) {
                group.writeEntry(member.key(), member.value().toVariant());
            }
        }
        config.sync();
    }

    QString path() const { return m_directory.filePath(QStringLiteral("leaves.ini")); }
    QString copyPath() const { return m_directory.filePath(QStringLiteral("copy.ini")); }

private:
    QTemporaryDir m_directory;
};

void kconfigParse(benchmark::State &state)
{
    const ConfigurationFile file;
    measureParsing(
        state, [&file] { return std::make_unique<KConfig>(file.path(), KConfig::SimpleConfig); });
}

void kconfigFrame(benchmark::State &state)
{
    const ConfigurationFile file;
    const KConfig config(file.path(), KConfig::SimpleConfig);
    for (auto _ : state) {
        state.PauseTiming();
        QFile::remove(file.copyPath());
        const std::unique_ptr<KConfig> copy(config.copyTo(file.copyPath()));
        state.ResumeTiming();
        copy->sync();
    }
}

// libyang: a list of leaves under a schema that knows the type of each property.

const char *const schema = R"(module bench {
  namespace "urn:bench"; prefix b;
  container device { list leaf { key "displayPosition";
    leaf displayPosition { type int32; }
    leaf type { type string; }
    leaf value { type int32; }
    leaf minLimit { type int32; }
    leaf maxLimit { type int32; }
    leaf labelTextId { type string; }
    leaf unitType { type string; }
    leaf unit { type string; }
    leaf unitText { type string; }
    leaf viewStart { type int32; }
    leaf viewEnd { type int32; }
    leaf readOnly { type boolean; }
  } }
})";

QByteArray listText()
{
    QJsonArray leaves;
    for (int position = 0; position < leafCount; ++position) {
        leaves.append(Descriptions::configurationLeaf(position));
    }
    const QJsonObject device{{QStringLiteral("leaf"), leaves}};
    return QJsonDocument(QJsonObject{{QStringLiteral("bench:device"), device}})
        .toJson(QJsonDocument::Compact);
}

using DataTree = std::unique_ptr<lyd_node, void (*)(lyd_node *)>;

class YangContext
{
public:
    YangContext()
    {
        ly_ctx_new(nullptr, LY_CTX_NO_YANGLIBRARY, &m_context);
        lys_parse_mem(m_context, schema, LYS_IN_YANG, nullptr);
    }
    ~YangContext() { ly_ctx_destroy(m_context); }

    YangContext(const YangContext &) = delete;
    YangContext &operator=(const YangContext &) = delete;

    DataTree parse(const QByteArray &text) const
    {
        lyd_node *tree = nullptr;
        lyd_parse_data_mem(m_context, text.constData(), LYD_JSON, LYD_PARSE_STRICT,
                           LYD_VALIDATE_PRESENT, &tree);
        return {tree, lyd_free_all};
    }

private:
    ly_ctx *m_context = nullptr;
};

void libyangParse(benchmark::State &state)
{
    const YangContext context;
    const QByteArray text = listText();
    if (context.parse(text) == nullptr) {
        state.SkipWithError("the list does not follow its schema");
        return;
    }
    measureParsing(state, [&] { return context.parse(text); });
}

void libyangFrame(benchmark::State &state)
{
    const YangContext context;
    const DataTree tree = context.parse(listText());
    for (auto _ : state) {
        char *text = nullptr;
        lyd_print_mem(&text, tree.get(), LYD_JSON, LYD_PRINT_WITHSIBLINGS | LYD_PRINT_SHRINK);
        benchmark::DoNotOptimize(text);
        free(text);
    }
}

void row(const char *name, void (*function)(benchmark::State &))
{
    benchmark::RegisterBenchmark(name, function)->Unit(benchmark::kMillisecond);
}

const bool rowsAreRegistered = [] {
    row("documents/parse/tessel", parseConfiguration);
    row("documents/parse/floor", documentFromConfiguration);
    row("documents/parse/peer-rapidjson", rapidJsonParse);
    row("documents/parse/peer-nlohmann-json", nlohmannParse);
    row("documents/parse/peer-kconfig", kconfigParse);
    row("documents/parse/peer-libyang", libyangParse);
    row("documents/frame/tessel", frame);
    row("documents/frame/floor", documentToText);
    row("documents/frame/peer-rapidjson", rapidJsonFrame);
    row("documents/frame/peer-nlohmann-json", nlohmannFrame);
    row("documents/frame/peer-kconfig", kconfigFrame);
    row("documents/frame/peer-libyang", libyangFrame);
    return true;
}();

} // namespace
