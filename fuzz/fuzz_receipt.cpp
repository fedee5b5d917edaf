// Receipt records: no crash, and every record is a piece of the input.

#include <answer/receiptrecord.h>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size));
    qsizetype covered = 0;
    for (const ReceiptRecord &record : scanReceiptRecords(text)) {
        covered += record.tag.size() + record.field.size() + record.text.size() + 3;
        if (record.tag.isEmpty() || record.tag.contains(u'^') || record.field.contains(u'^') ||
            record.text.contains(u'~'))
            std::abort();
    }
    if (covered > text.size())
        std::abort();
    return 0;
}
