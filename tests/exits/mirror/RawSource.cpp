// Writes samples as no source would, as its standard input says. A line is
//   KEY FINGERPRINT BYTE_ORDER STATUS ATTACHMENT GENERATION TIME HEX
// with one blank between, FINGERPRINT in hexadecimal and "-" for no bytes; each is answered by "sent".
#include "mirror/MirrorDomain.h"
#include "service/Refusal.h"

#include <QByteArray>
#include <QList>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include <MirrorTopics.h>

namespace {

void send(dds_entity_t writer, const QList<QByteArray> &words)
{
    QByteArray bytes = words[7] == "-" ? QByteArray() : QByteArray::fromHex(words[7]);
    tessel_mirror_SourceSet sample{};
    std::strncpy(sample.region, words[0].constData(), sizeof sample.region - 1);
    std::strcpy(sample.host, "raw");
    std::memset(sample.source, 'r', sizeof sample.source);
    sample.fingerprint = words[1].toULongLong(nullptr, 16);
    sample.byte_order = static_cast<uint8_t>(words[2].toUInt());
    sample.status = static_cast<uint8_t>(words[3].toUInt());
    sample.attachment = words[4].toUInt();
    sample.generation = words[5].toULongLong();
    sample.time_stamp = words[6].toLongLong();
    sample.bytes._buffer = reinterpret_cast<uint8_t *>(bytes.data());
    sample.bytes._length = sample.bytes._maximum = static_cast<uint32_t>(bytes.size());
    if (dds_write(writer, &sample) != DDS_RETCODE_OK) {
        std::exit(EXIT_FAILURE);
    }
}

} // namespace

int main(int argc, char *argv[])
try {
    DomainSettings settings;
    settings.domain = argc > 1 ? static_cast<quint32>(std::atoi(argv[1])) : 0;
    settings.interfaces = QStringList(QStringLiteral("lo"));
    const MirrorDomain domain(settings);
    const dds_entity_t writer = domain.makeSetWriter(20000);
    std::string line;
    while (std::getline(std::cin, line)) {
        const QList<QByteArray> words = QByteArray::fromStdString(line).split(' ');
        if (words.size() != 8) {
            return EXIT_FAILURE;
        }
        send(writer, words);
        std::puts("sent");
        std::fflush(stdout);
    }
    return EXIT_SUCCESS;
} catch (const Refusal &refusal) {
    std::fputs(qPrintable(refusal.text), stderr);
    return EXIT_FAILURE;
}
