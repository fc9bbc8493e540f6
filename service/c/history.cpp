// What this computer remembers: runs that were cut off, what was there before a run, and all runs.
#include "tavo/service/history.h"

#include "service/c/boundary.h"
#include "tavo/service/backups.h"

struct tavo_backup_list {
    std::vector<tavo::Backup> backups;
};
struct tavo_history {
    tavo::History history;
};

namespace tavo::c {
namespace {

static_assert(static_cast<int>(BackupKind::Domains) == TAVO_BACKUP_DOMAINS);

tavo_backup describe(const Backup& backup) {
    tavo_backup told{};
    told.kind = static_cast<std::uint32_t>(backup.kind);
    told.bytes = backup.bytes;
    told.is_damaged = backup.isDamaged;
    put(told.id, backup.id);
    put(told.time, backup.time);
    put(told.sha256, backup.sha256);
    put(told.taken_before, backup.takenBefore);
    put(told.path, backup.path);
    return told;
}

tavo_history_entry describe(const HistoryEntry& entry) {
    tavo_history_entry told{};
    told.seconds = entry.seconds;
    put(told.time, entry.time);
    put(told.action, entry.action);
    put(told.part, entry.part);
    put(told.result, entry.result);
    put(told.tool, entry.tool);
    put(told.run, entry.run);
    put(told.neuron_id, entry.neuronId);
    put(told.sha256, entry.sha256);
    put(told.serial, entry.serial);
    put(told.serial_after, entry.serialAfter);
    put(told.path, entry.path);
    put(told.image, entry.image);
    put(told.backup, entry.backup);
    put(told.state, entry.state);
    put(told.error, entry.error);
    return told;
}

tavo_restore_result resultOf(const RestoreResult& done) {
    tavo_restore_result told{};
    told.changed = done.changed;
    told.state = stateOf(done.state);
    if (done.flash) {
        told.way = static_cast<std::uint32_t>(done.flash->way);
        told.pages_written = done.flash->pagesWritten;
        told.retry_count = static_cast<std::uint32_t>(done.flash->retries.size());
    }
    told.changed_bytes = static_cast<std::uint32_t>(done.bytes.size());
    told.domains = bitsOf(done.domains);
    told.kept_keys = bitsOf(done.keptKeys);
    put(told.backup, done.backup);
    return told;
}

tavo_interrupted_run describe(const InterruptedRun& run) {
    tavo_interrupted_run told{};
    told.found = 1;
    told.flash = static_cast<std::uint32_t>(interruptedState(run));
    put(told.image, run.image);
    put(told.sha256, run.sha256);
    put(told.started, run.started);
    put(told.backup, run.backup);
    put(told.text, interruptedText(run));
    put(told.hint, interruptedHint(run));
    return told;
}

}  // namespace
}  // namespace tavo::c

using namespace tavo::c;

tavo_result tavo_find_interrupted_run(const tavo_device* device, tavo_interrupted_run* run, tavo_error* error) {
    return guarded(error, [&] {
        const tavo::DeviceDescription& description = given(device, "device").device.description();
        const auto found = tavo::interruptedRun(description);
        Out(run, "run").fill(found ? describe(*found) : tavo_interrupted_run{});
    });
}

tavo_result tavo_find_backups(const tavo_device* device, tavo_backup_list** list, tavo_error* error) {
    return guarded(error, [&] {
        tavo_backup_list*& place = emptied(list, "list");
        place = new tavo_backup_list{tavo::backups(given(device, "device").device.description())};
    });
}

void tavo_free_backup_list(tavo_backup_list* list) {
    delete list;
}

uint32_t tavo_backup_count(const tavo_backup_list* list) {
    return list == nullptr ? 0 : static_cast<uint32_t>(list->backups.size());
}

tavo_result tavo_listed_backup(const tavo_backup_list* list, uint32_t index, tavo_backup* backup, tavo_error* error) {
    return guarded(error, [&] {
        const auto& backups = given(list, "list").backups;
        Out(backup, "backup").fill(describe(at(backups, index, "backup")));
    });
}

tavo_result tavo_restore(tavo_device* device, uint32_t kind, const char* which, const tavo_restore_options* options,
                         const tavo_control* control, tavo_restore_result* result, tavo_error* error) {
    return onDevice(device, control, error, [&](tavo::Device& own, const tavo::Control& watch) {
        const Out out(result, "result");
        tavo::RestoreOptions how;
        how.noBackup = taken(options, "options").no_backup != 0;
        const auto wanted = valueOf(kind, tavo::BackupKind::Domains, "kind of backup");
        const tavo::Backup backup = tavo::findBackup(own.description(), wanted, textOf(which));
        out.fill(resultOf(tavo::restore(own, backup, how, watch)));
    });
}

tavo_result tavo_read_history(const char* spec, tavo_history** history, tavo_error* error) {
    return guarded(error, [&] {
        tavo_history*& place = emptied(history, "history");
        place = new tavo_history{tavo::history(specsOf(spec))};
    });
}

void tavo_free_history(tavo_history* history) {
    delete history;
}

uint32_t tavo_entry_count(const tavo_history* history) {
    return history == nullptr ? 0 : static_cast<uint32_t>(history->history.entries.size());
}

tavo_result tavo_listed_entry(const tavo_history* history, uint32_t index, tavo_history_entry* entry,
                              tavo_error* error) {
    return guarded(error, [&] {
        const auto& entries = given(history, "history").history.entries;
        Out(entry, "entry").fill(describe(at(entries, index, "entry")));
    });
}

tavo_result tavo_history_faults(const tavo_history* history, char* buffer, uint32_t capacity, uint32_t* needed,
                                tavo_error* error) {
    return guarded(error,
                   [&] { hand(linesOf(given(history, "history").history.faults) + '\0', buffer, capacity, needed); });
}
