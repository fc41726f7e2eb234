// Any bytes in promises.json: the reader answers with records or with nothing, never a crash;
// what it accepts is written as valid UTF-8 and reads back as the same records; the fast reader
// of Tovin's own layout agrees with the general one, and appending equals encoding afresh.
#include "core/promise_record.h"

#include <QTimeZone>
#include <QUtf8StringView>

#include <cstdint>
#include <cstdlib>

using namespace tovin;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    // The fast reader of Tovin's own layout accepts only what encode writes, and answers exactly
    // as the general reader does.
    if (const auto fast = PromiseJson::decodeCanonical(bytes)) {
        const auto general = PromiseJson::decodeGeneral(bytes);
        if (!general || *general != *fast ||
            PromiseJson::encode(*fast, PromiseJson::Layout::Pretty) != bytes)
            std::abort();
        QByteArray grown = bytes;
        const PromiseRecord extra{QDateTime::fromSecsSinceEpoch(0, QTimeZone::utc()),
                                  PromiseRecord::Outcome::Tovin,
                                  QStringLiteral("x"),
                                  1,
                                  1,
                                  std::nullopt,
                                  std::nullopt};
        PromiseJson::appendPretty(grown, extra);
        if (PromiseJson::encode(*fast + QList<PromiseRecord>{extra}, PromiseJson::Layout::Pretty) !=
            grown)
            std::abort();
    }
    const auto records = PromiseJson::decode(bytes);
    if (!records)
        return 0;
    for (const auto layout : {PromiseJson::Layout::Pretty, PromiseJson::Layout::Compact}) {
        const QByteArray encoded = PromiseJson::encode(*records, layout);
        if (!QUtf8StringView(encoded).isValidUtf8())
            std::abort();
        const auto again = PromiseJson::decode(encoded);
        if (!again || again->size() != records->size())
            std::abort();
        for (qsizetype i = 0; i < records->size(); ++i) {
            const auto& a = (*records)[i];
            const auto& b = (*again)[i];
            if (a.date != b.date || a.outcome != b.outcome || a.reps != b.reps ||
                a.cleanReps != b.cleanReps || a.reason != b.reason || a.attested != b.attested)
                std::abort();
        }
    }
    return 0;
}
