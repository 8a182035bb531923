#include "veldan/core/rsrc_msg.h"

#include <QFile>

#include "veldan/core/archivable.h"

namespace veldan {

bool TRsrcMsg::GetMessage(const char* name, TMessage* out, const QString& root) const {
    if (!name || !name[0] || !out) return false;
    if (fFromFile) {
        TMessage table;
        return load_message(fFile, &table) && table.FindMessage(name, out);
    }
    QFile resource(root + QLatin1Char('/') + QString::fromUtf8(name));
    return resource.open(QIODevice::ReadOnly) && out->Unflatten(&resource);
}

}  // namespace veldan
