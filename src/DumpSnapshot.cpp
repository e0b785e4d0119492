#include "DumpSnapshot.h"

void DumpSnapshot::Drain(DumpForm form, const RecordStore::Sink& sink) {
    if (form == DumpForm::kZstd) {
        records.DrainPacked(head, sink);
        return;
    }
    sink(head.data(), head.size());
    records.Drain(sink);
}
