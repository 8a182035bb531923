#include "player/list_hint.h"

#include <QEvent>
#include <QTreeWidgetItemIterator>

#include "playlist/orvick_view.h"
#include "playlist/quill_sitem.h"
#include "veldan/core/llt.h"
#include "veldan/widgets/lang_key.h"

namespace quill {

namespace {

constexpr int kMargin = 12;

bool has_song(TOrvickView* list) {
    for (QTreeWidgetItemIterator it(list); *it; ++it) {
        if ((*it)->type() != TQuillSItem::kItemType) continue;
        if (!static_cast<TQuillSItem*>(*it)->Container()) return true;
    }
    return false;
}

}  // namespace

TListHint::TListHint(const veldan::TLLT& texts, TOrvickView* list)
    : QLabel(list->viewport()), fList(list) {
    setObjectName("StrViewListHint");
    setAlignment(Qt::AlignCenter);
    setWordWrap(true);
    setMargin(kMargin);
    // Drops and clicks belong to the list under the text.
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setForegroundRole(QPalette::PlaceholderText);
    list->viewport()->installEventFilter(this);
    QAbstractItemModel* rows = list->model();
    connect(rows, &QAbstractItemModel::rowsInserted, this, &TListHint::Follow);
    connect(rows, &QAbstractItemModel::rowsRemoved, this, &TListHint::Follow);
    connect(rows, &QAbstractItemModel::modelReset, this, &TListHint::Follow);
    ApplyLanguage(texts);
    setGeometry(list->viewport()->rect());
    Follow();
}

void TListHint::ApplyLanguage(const veldan::TLLT& texts) {
    setText(QString::fromUtf8(texts.Text(veldan::llt_key("List_Empty_Hint"))));
}

void TListHint::Follow() { setVisible(!has_song(fList)); }

bool TListHint::eventFilter(QObject* watched, QEvent* event) {
    if (watched == fList->viewport() && event->type() == QEvent::Resize) {
        setGeometry(fList->viewport()->rect());
    }
    return QLabel::eventFilter(watched, event);
}

}  // namespace quill
