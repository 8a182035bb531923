// Saving lists from the playlist view, and asking to save them before they are lost.

#include <QFileDialog>
#include <algorithm>

#include "playlist/orvick_view.h"
#include "veldan/core/llt.h"
#include "veldan/widgets/alert.h"

namespace fs = std::filesystem;

namespace {

veldan::TMessage save_message(int32_t listId) {
    veldan::TMessage save(TOrvickView::kMsgSaveRequested);
    save.AddInt32(TOrvickView::kListIdField, listId);
    return save;
}

veldan::TMessage with_target(const veldan::TMessage& message, const fs::path& target) {
    veldan::TMessage answer(message);
    answer.what = TOrvickView::kMsgSaveRequested;
    answer.RemoveName(TOrvickView::kSaveTargetField);
    answer.AddRef(TOrvickView::kSaveTargetField, target);
    return answer;
}

// Only a native list has a file the native format may overwrite: a folder, or a list read
// by a loader in another format, is saved under a new name.
bool needs_save_as(const TQuillSItem& list) {
    return list.UnnamedNewList() || list.Kind() != kFmtNativeList || list.EntryRef().empty();
}

// Whether deleting the selection removes row: it or a row above it is selected, the
// main list (which deleting keeps) aside.
bool goes_with_selection(const QTreeWidgetItem* row, const QTreeWidgetItem* mainList) {
    for (const QTreeWidgetItem* up = row; up; up = up->parent()) {
        if (up->isSelected() && up != mainList) return true;
    }
    return false;
}

// "%s" in a language text stands for the list's name.
std::string with_name(const char* text, const std::string& name) {
    std::string result = text;
    const size_t at = result.find("%s");
    if (at != std::string::npos) result.replace(at, 2, name);
    return result;
}

}  // namespace

void TOrvickView::PopupSaveListClicked() {
    const std::vector<TQuillSItem*> selected = SelectedRows();
    const auto list = std::find_if(selected.rbegin(), selected.rend(), [](const TQuillSItem* row) {
        return row->Container() && (row->Modified() || row->UnnamedNewList());
    });
    if (list == selected.rend()) return;
    veldan::TMessage save = save_message((*list)->ListId());
    veldan::add_next_msg(&save, veldan::TMessage(kMsgPopupSave), this);
    SaveList(save);
}

void TOrvickView::PopupSaveListAsClicked(const veldan::TMessage& message) {
    std::string offered;
    message.FindString(kSavedIdsField, &offered);
    const std::vector<TQuillSItem*> selected = SelectedRows();
    for (auto row = selected.rbegin(); row != selected.rend(); ++row) {
        if (!(*row)->Container()) continue;
        const std::string framedId = "," + std::to_string((*row)->ListId()) + ",";
        if (offered.find(framedId) != std::string::npos) continue;
        veldan::TMessage next(message);
        next.RemoveName(kSavedIdsField);
        next.AddString(kSavedIdsField, offered + framedId);
        veldan::TMessage save = save_message((*row)->ListId());
        veldan::add_next_msg(&save, next, this);
        SaveListAs(save);
        return;
    }
}

bool TOrvickView::SaveList(const veldan::TMessage& message) {
    const TQuillSItem* list = ListOf(message);
    if (!list) return false;
    if (needs_save_as(*list)) return SaveListAs(message);
    return SaveRequested(with_target(message, list->EntryRef()));
}

bool TOrvickView::SaveListAs(const veldan::TMessage& message) {
    const TQuillSItem* list = ListOf(message);
    if (!list) return false;
    const std::optional<fs::path> target = ChooseTarget(*list);
    if (!target) return false;  // cancelled: the chain ends here
    return SaveRequested(with_target(message, *target));
}

bool TOrvickView::SaveRequested(const veldan::TMessage& message) {
    int32_t listId = 0;
    fs::path target;
    if (!message.FindInt32(kListIdField, &listId) || !message.FindRef(kSaveTargetField, &target))
        return false;
    if (!WriteList(listId, target)) return false;
    veldan::invoke_next_msg(&message);
    return true;
}

TQuillSItem* TOrvickView::ListOf(const veldan::TMessage& message) const {
    int32_t listId = 0;
    TQuillSItem* list = message.FindInt32(kListIdField, &listId) ? FindList(listId) : nullptr;
    if (!list) ReportFailure(fTexts.Text("Err_Already_Deled"));
    return list;
}

std::optional<fs::path> TOrvickView::ChooseTarget(const TQuillSItem& list) {
    std::optional<fs::path> target = fSavePanel ? fSavePanel(list) : RunSavePanel(list);
    if (!target || target->empty()) return std::nullopt;
    std::error_code error;
    fs::path absolute = fs::absolute(*target, error);
    if (error) return std::nullopt;
    if (!absolute.has_extension()) absolute += kPlaylistExtension;
    return absolute;
}

std::optional<fs::path> TOrvickView::RunSavePanel(const TQuillSItem& list) {
    QFileDialog panel(this, QString::fromUtf8(fTexts.Text("Save_Panel_Title")));
    panel.setObjectName("SavePanel");
    panel.setOption(QFileDialog::DontUseNativeDialog);
    panel.setAcceptMode(QFileDialog::AcceptSave);
    panel.setFileMode(QFileDialog::AnyFile);
    if (!list.EntryRef().empty()) {
        panel.setDirectory(QString::fromStdString(list.EntryRef().parent_path().string()));
    }
    // A folder's name may hold a full stop that is no extension.
    fs::path name(list.ExpFName(fTexts));
    if (list.Kind() != kFmtFolderList) name.replace_extension();
    name += kPlaylistExtension;
    panel.selectFile(QString::fromStdString(name.string()));
    if (panel.exec() != QDialog::Accepted || panel.selectedFiles().isEmpty()) return std::nullopt;
    return fs::path(panel.selectedFiles().front().toStdString());
}

bool TOrvickView::WriteList(int32_t listId, const fs::path& target) {
    std::string error;
    if (!OverwriteList(listId, target, &error)) {
        ReportFailure(error);
        return false;
    }
    if (const TQuillSItem* list = FindList(listId); list && fSaved) fSaved(*list);
    // The window title names the first list, which may have a new name now.
    if (FindList(listId) == topLevelItem(0)) {
        veldan::post_message(fOwner, veldan::TMessage(kMsgUpdateWinTitle));
    }
    return true;
}

void TOrvickView::ReportFailure(const std::string& text) const {
    if (fFailure) {
        fFailure(text);
    } else {
        veldan::show_failure(fTexts, text);
    }
}

TOrvickView::TSaveAnswer TOrvickView::RunAskSave(const TQuillSItem& list) const {
    const std::string question = with_name(fTexts.Text("Ask_Save_List"), list.ExpFName(fTexts));
    const int pressed = veldan::show_alert(
        fTexts.Text("Alert_Caption"), question.c_str(), fTexts.Text("Button_Yes"),
        fTexts.Text("Button_No"), fTexts.Text("Button_Cancel"), 2, veldan::TAlertType::kWarning);
    if (pressed == 0) return TSaveAnswer::kYes;
    if (pressed == 1) return TSaveAnswer::kNo;
    return TSaveAnswer::kCancel;
}

bool TOrvickView::AskSaveLists(const std::vector<TQuillSItem*>& lists) {
    for (const TQuillSItem* list : lists) {
        if (!list->Modified()) continue;
        const TSaveAnswer answer = fAskSave ? fAskSave(*list) : RunAskSave(*list);
        if (answer == TSaveAnswer::kCancel) return false;
        if (answer == TSaveAnswer::kYes && !SaveList(save_message(list->ListId()))) return false;
    }
    return true;
}

bool TOrvickView::AskSaveSelectedList([[maybe_unused]] const veldan::TMessage& next,
                                      [[maybe_unused]] QObject* target) {
    BuildFlatList();
    std::vector<TQuillSItem*> lists;
    for (TQuillSItem* row : fFlatRows) {
        if (row->Container() && goes_with_selection(row, topLevelItem(0))) {
            lists.push_back(row);
        }
    }
    return AskSaveLists(lists);
}

bool TOrvickView::AskSaveAllList([[maybe_unused]] const veldan::TMessage& next,
                                 [[maybe_unused]] QObject* target) {
    BuildFlatList();
    std::vector<TQuillSItem*> lists;
    std::copy_if(fFlatRows.begin(), fFlatRows.end(), std::back_inserter(lists),
                 [](const TQuillSItem* row) { return row->Container(); });
    return AskSaveLists(lists);
}

bool TOrvickView::HasModifiedList() const {
    BuildFlatList();
    return std::any_of(fFlatRows.begin(), fFlatRows.end(),
                       [](const TQuillSItem* row) { return row->Container() && row->Modified(); });
}
