// Any bytes in promises.json: the reader answers with records or with nothing, never a crash;
// what it accepts is written as valid UTF-8 and reads back as the same records.
#include "promises/promise_record.h"

#include <QUtf8StringView>

#include <cstdint>
#include <cstdlib>

using namespace tovin;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
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
