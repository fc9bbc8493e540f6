#include "tests/serviceTestC.h"

#include <fcntl.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "tavo/service.h"

#define CHECK(condition) ((condition) ? (void)0 : failed(__FILE__, __LINE__, #condition))
// A call that is to succeed; what it says when it does not.
#define GOOD(call) ((call) == TAVO_OK ? (void)0 : failed(__FILE__, __LINE__, problem.message))

enum { IMAGE_SIZE = 5000, PAGES = 20 };

static tavo_error problem = {.size = sizeof problem};

static tavo_device* opened(void) {
    tavo_device* device = NULL;
    GOOD(tavo_open_device(NULL, 0, NULL, &device, &problem));
    return device;
}

static tavo_image* noise(void) {
    uint8_t bytes[IMAGE_SIZE];
    for (uint32_t i = 0, state = 1; i < IMAGE_SIZE; ++i) {
        state = state * 1103515245U + 12345U;
        bytes[i] = (uint8_t)(state >> 16 | 1U);
    }
    tavo_image* image = NULL;
    GOOD(tavo_new_image(&image, &problem));
    GOOD(tavo_add_bytes(image, 0, bytes, IMAGE_SIZE, NULL, &problem));
    return image;
}

// Good until the next call.
static const char* in(const char* folder, const char* name) {
    static char path[1024];
    snprintf(path, sizeof path, "%s/%s", folder, name);
    return path;
}

void cFindsAndLocksDevices(const char* folder) {
    tavo_device_list* list = NULL;
    tavo_device_description found = {.size = sizeof found};
    GOOD(tavo_find_devices(NULL, &list, &problem));
    CHECK(tavo_device_count(list) == 1);
    GOOD(tavo_listed_device(list, 0, &found, &problem));
    CHECK(strcmp(found.serial, "00001234") == 0 && strncmp(found.path, "sim:/", 5) == 0);
    CHECK(found.vendor_id == 0x04B4 && found.access == 0 && !found.is_held);
    CHECK(tavo_listed_device(list, 1, &found, &problem) == TAVO_PROBLEM_BAD_ARGUMENT);

    tavo_device* device = NULL;
    tavo_device* second = NULL;
    GOOD(tavo_open_listed_device(list, 0, &device, &problem));
    tavo_free_device_list(list);
    CHECK(tavo_open_device("00001234", 0, NULL, &second, &problem) == TAVO_PROBLEM_BUSY && second == NULL);
    CHECK(strstr(problem.message, "in use") != NULL && problem.hint[0] != '\0');
    uint32_t attached = 0;
    GOOD(tavo_is_attached(found.path, &attached, &problem));
    CHECK(attached == 1);
    tavo_device_description again = {.size = sizeof again};
    GOOD(tavo_describe_device(device, &again, &problem));
    CHECK(strcmp(again.name, found.name) == 0);
    tavo_close_device(device);

    GOOD(tavo_open_device("serial:00001234", 1, NULL, &device, &problem));
    CHECK(problem.message[0] == '\0' && strcmp(problem.name, "ok") == 0);
    tavo_close_device(device);
    CHECK(tavo_open_device("serial:other", 0, NULL, &device, &problem) == TAVO_PROBLEM_NO_DEVICE);
    CHECK(tavo_find_devices("neuron:XY", &list, &problem) == TAVO_PROBLEM_BAD_ARGUMENT && list == NULL);
    GOOD(tavo_allow_usb_id(0x1234, 0x5678, &problem));

    char spec[1024];
    char variables[8192];
    uint32_t needed = 0;
    snprintf(spec, sizeof spec, "sim:%s", folder);
    CHECK(tavo_is_on_simulated_interfaces() == 1);
    GOOD(tavo_simulated_environment(spec, NULL, 0, &needed, &problem));
    CHECK(needed > strlen(folder) && needed < sizeof variables);
    GOOD(tavo_simulated_environment(spec, variables, sizeof variables, NULL, &problem));
    CHECK(strncmp(variables, "TAVO_SIM=", 9) == 0 && memcmp(variables + needed - 2, "\0", 2) == 0);
}

void cReadsAndWritesImages(const char* folder) {
    tavo_image* image = noise();
    int64_t replaced_at = 0;
    GOOD(tavo_add_bytes(image, 0x2000, (const uint8_t*)"\x11\x22", 2, &replaced_at, &problem));
    CHECK(replaced_at == -1);
    GOOD(tavo_add_bytes(image, 0x2001, (const uint8_t*)"\x33", 1, &replaced_at, &problem));
    CHECK(replaced_at == 0x2001);
    CHECK(tavo_add_bytes(image, 0xFFFFFF, (const uint8_t*)"\x11\x22", 2, NULL, &problem) == TAVO_PROBLEM_BAD_ARGUMENT);
    uint8_t bytes[4];
    GOOD(tavo_get_bytes(image, 0x1FFF, bytes, 4, &problem));
    CHECK(memcmp(bytes, "\xFF\x11\x33\xFF", 4) == 0);
    tavo_range ranges[2];
    uint32_t count = 0;
    GOOD(tavo_image_ranges(image, ranges, 2, &count, &problem));
    CHECK(count == 2 && ranges[0].last == IMAGE_SIZE - 1 && ranges[1].first == 0x2000 && ranges[1].last == 0x2001);

    tavo_written_file written = {.size = sizeof written};
    GOOD(tavo_write_image(image, in(folder, "image.srec"), NULL, &written, &problem));
    CHECK(tavo_write_image(image, in(folder, "image.srec"), NULL, NULL, &problem) == TAVO_PROBLEM_FILE_SYSTEM);
    CHECK(tavo_write_image(image, in(folder, "image.hex.gz"), NULL, NULL, &problem) == TAVO_PROBLEM_BAD_ARGUMENT);
    const tavo_write_options replacing = {.size = sizeof replacing, .replace = 1, .record_bytes = 16};
    GOOD(tavo_write_image(image, in(folder, "image.srec"), &replacing, &written, &problem));
    tavo_image_description made = {.size = sizeof made};
    tavo_image_description read = {.size = sizeof read};
    GOOD(tavo_describe_image(image, &made, &problem));
    tavo_free_image(image);
    GOOD(tavo_read_image(in(folder, "image.srec"), NULL, &image, &problem));
    GOOD(tavo_describe_image(image, &read, &problem));
    CHECK(strcmp(read.identity, made.identity) == 0 && strcmp(read.file_sha256, written.sha256) == 0);
    CHECK(read.format == TAVO_FORMAT_SRECORD && made.format == TAVO_FORMAT_AUTOMATIC && read.last == 0x2001);
    CHECK(read.byte_count == IMAGE_SIZE + 2 && read.file_bytes == written.bytes && read.change_count == 1);
    tavo_free_image(image);

    const int file = open(in(folder, "image.srec"), O_RDONLY);
    GOOD(tavo_read_image_from_descriptor(file, "input", NULL, &image, &problem));
    close(file);
    tavo_free_image(image);
    const tavo_read_options raw = {.size = sizeof raw, .format = TAVO_FORMAT_BINARY, .address = 0x100};
    GOOD(tavo_read_image_from_memory("abc", 3, "input", &raw, &image, &problem));
    GOOD(tavo_describe_image(image, &read, &problem));
    CHECK(read.first == 0x100 && read.byte_count == 3);
    tavo_free_image(image);
    const char* bad = ":0400000001020304F3\n:0400080001020304E9\n:00000001FF\n";
    CHECK(tavo_read_image_from_memory(bad, strlen(bad), "input", NULL, &image, &problem) == TAVO_PROBLEM_FILE_REFUSED);
    CHECK(problem.detail_count == 2 && strstr(problem.details, "line 1: ") != NULL && image == NULL);
}

static void countPhases(const tavo_event* event, void* context) {
    if (event->kind == TAVO_EVENT_PHASE_BEGINS) ((uint32_t*)context)[event->phase] += 1;
}

void cProgramsAndReadsTheFlash(const char* folder) {
    tavo_device* device = opened();
    tavo_image* image = noise();
    tavo_flash_description chip = {.size = sizeof chip};
    GOOD(tavo_inspect_flash(device, NULL, &chip, &problem));
    CHECK(chip.chip.capacity == 1U << 20 && chip.has_sfdp && chip.erase_type_count > 1);
    CHECK(chip.erase_types[0].bytes == 4096 && strstr(chip.chip.text, "1 MiB") != NULL);

    char backup[1024];
    snprintf(backup, sizeof backup, "%s", in(folder, "before.bin"));
    const tavo_program_options options = {
        .size = sizeof options, .backup = backup, .image_name = "noise", .no_backup = 1};
    tavo_program_forecast forecast = {.size = sizeof forecast};
    GOOD(tavo_forecast_program(image, &options, &forecast, &problem));
    CHECK(forecast.full_seconds > forecast.least_seconds && forecast.chip_size >= IMAGE_SIZE);
    CHECK(forecast.pages_written == PAGES && strstr(forecast.steps, "backup") != NULL);

    uint32_t phases[TAVO_PHASE_RESET + 1] = {0};
    tavo_monitor* monitor = NULL;
    GOOD(tavo_new_monitor(&monitor, &problem));
    const tavo_control control = {
        .size = sizeof control, .observer = countPhases, .context = phases, .monitor = monitor};
    tavo_program_result done = {.size = sizeof done};
    GOOD(tavo_program_flash(device, image, &options, &control, &done, &problem));
    CHECK(done.pages_written == PAGES && done.retry_count == 0 && strlen(done.backup_sha256) == 64);
    CHECK(access(in(folder, "backups"), F_OK) != 0);  // .no_backup
    CHECK(done.state.flash == TAVO_FLASH_PROGRAMMED && done.state.reset_line == TAVO_LINE_RELEASED);
    CHECK(phases[TAVO_PHASE_PROGRAM] == 1 && phases[TAVO_PHASE_BACKUP] + phases[TAVO_PHASE_READ] >= 1);
    tavo_progress progress = {.size = sizeof progress};
    GOOD(tavo_read_progress(monitor, &progress, &problem));
    CHECK(progress.phase != TAVO_PHASE_NONE && !progress.is_cancelled && progress.done == progress.total);
    tavo_free_monitor(monitor);

    tavo_verify_result compared = {.size = sizeof compared};
    GOOD(tavo_verify_flash(device, image, NULL, NULL, &compared, &problem));
    CHECK(compared.equal && compared.is_complete);
    GOOD(tavo_add_bytes(image, 0x1001, (const uint8_t*)"\0", 1, NULL, &problem));
    GOOD(tavo_verify_flash(device, image, NULL, NULL, &compared, &problem));
    CHECK(!compared.equal && compared.difference_count == 1 && compared.differences[0].range.first == 0x1001);
    CHECK(compared.differences[0].wanted == 0 && compared.differences[0].found > 0);
    const tavo_program_options full = {.size = sizeof full, .full = 1};
    GOOD(tavo_program_flash(device, image, &full, NULL, &done, &problem));
    CHECK(done.way == TAVO_PROGRAM_FULL);

    // What the image does not cover stays.
    tavo_image* patch = NULL;
    GOOD(tavo_new_image(&patch, &problem));
    GOOD(tavo_add_bytes(patch, 0, (const uint8_t*)"\xA5", 1, NULL, &problem));
    GOOD(tavo_add_bytes(patch, 0x1001, (const uint8_t*)"\x5A", 1, NULL, &problem));
    const tavo_program_options keeping = {.size = sizeof keeping, .has_range = 1, .range = {0, 0xFFF}};
    GOOD(tavo_program_flash(device, patch, &keeping, NULL, &done, &problem));
    CHECK(done.way == TAVO_PROGRAM_SECTORS);
    tavo_free_image(patch);
    GOOD(tavo_add_bytes(image, 0, (const uint8_t*)"\xA5", 1, NULL, &problem));
    GOOD(tavo_verify_flash(device, image, NULL, NULL, &compared, &problem));
    CHECK(compared.equal);

    tavo_image* contents = NULL;
    tavo_flash_result result = {.size = sizeof result};
    uint8_t bytes[2];
    GOOD(tavo_read_flash(device, NULL, NULL, &contents, &result, &problem));
    GOOD(tavo_get_bytes(contents, IMAGE_SIZE - 1, bytes, 2, &problem));
    CHECK(bytes[0] != 0xFF && bytes[1] == 0xFF && result.chip.capacity == 1U << 20);
    tavo_written_file file = {.size = sizeof file};
    GOOD(tavo_dump_flash(device, NULL, in(folder, "dump.bin"), NULL, NULL, NULL, &file, &problem));
    CHECK(file.bytes == 1U << 20);

    tavo_blank_check_result blank = {.size = sizeof blank};
    GOOD(tavo_blank_check_flash(device, NULL, NULL, &blank, &problem));
    CHECK(!blank.blank && blank.first == 0);
    tavo_flash_options part = {.size = sizeof part, .has_range = 1, .range = {0x1000, 0x1FFF}};
    tavo_image* read = NULL;
    GOOD(tavo_read_flash(device, &part, NULL, &read, NULL, &problem));
    tavo_image_description told = {.size = sizeof told};
    GOOD(tavo_describe_image(read, &told, &problem));
    CHECK(told.first == 0x1000 && told.last == 0x1FFF);
    tavo_free_image(read);
    GOOD(tavo_dump_flash(device, &part, in(folder, "part.bin"), NULL, NULL, NULL, &file, &problem));
    CHECK(file.bytes == 0x1000);
    tavo_erase_options gone = {.size = sizeof gone, .has_range = 1, .range = part.range};
    GOOD(tavo_erase_flash(device, &gone, NULL, &result, &problem));
    CHECK(result.sectors_erased == 1);
    const tavo_verify_options first = {.size = sizeof first, .has_range = 1, .range = {0, 0xFFF}};
    GOOD(tavo_verify_flash(device, image, &first, NULL, &compared, &problem));
    CHECK(compared.equal);
    const tavo_blank_check_options second = {.size = sizeof second, .has_range = 1, .range = part.range};
    GOOD(tavo_blank_check_flash(device, &second, NULL, &blank, &problem));
    CHECK(blank.blank);
    gone.clock_hz = 3000001;
    CHECK(tavo_erase_flash(device, &gone, NULL, NULL, &problem) == TAVO_PROBLEM_BAD_ARGUMENT);
    gone.clock_hz = 0;
    part.clock_hz = 3000000;
    GOOD(tavo_read_flash(device, &part, NULL, &read, NULL, &problem));
    tavo_free_image(read);
    gone.range.last = 0x1FFE;
    CHECK(tavo_erase_flash(device, &gone, NULL, NULL, &problem) == TAVO_PROBLEM_BAD_ARGUMENT);
    part.range.last = 0;
    CHECK(tavo_read_flash(device, &part, NULL, &read, NULL, &problem) == TAVO_PROBLEM_BAD_ARGUMENT);
    GOOD(tavo_erase_flash(device, NULL, NULL, &result, &problem));
    CHECK(result.state.flash == TAVO_FLASH_ERASED && result.state.flash_lost);
    GOOD(tavo_blank_check_flash(device, NULL, NULL, &blank, &problem));
    CHECK(blank.blank && blank.first == -1 && blank.is_complete);
    tavo_free_image(contents);
    tavo_free_image(image);
    tavo_close_device(device);
}

void cRewritesTheConfiguration(const char* folder) {
    tavo_device* device = opened();
    uint8_t block[TAVO_CONFIGURATION_SIZE];
    uint8_t loaded[TAVO_CONFIGURATION_SIZE];
    GOOD(tavo_read_configuration(device, NULL, block, &problem));
    tavo_configuration_description told = {.size = sizeof told};
    GOOD(tavo_describe_configuration(block, &told, &problem));
    CHECK(strcmp(told.serial, "00001234") == 0 && told.checksum_right && strcmp(told.scb0, "SPI") == 0);

    tavo_configuration_options options = {.size = sizeof options, .dry_run = 1, .backup = in(folder, "old.bin")};
    tavo_configuration_result result = {.size = sizeof result};
    GOOD(tavo_set_serial_number(device, "NEW", &options, NULL, &result, &problem));
    CHECK(!result.written && result.changed_bytes > 0 && access(options.backup, F_OK) != 0);
    options.dry_run = 0;
    GOOD(tavo_set_serial_number(device, "NEW", &options, NULL, &result, &problem));
    CHECK(result.written && memcmp(result.before, block, sizeof block) == 0);
    GOOD(tavo_load_configuration(options.backup, loaded, &problem));
    CHECK(memcmp(loaded, block, sizeof block) == 0);
    CHECK(tavo_save_configuration(options.backup, block, 0, &problem) == TAVO_PROBLEM_FILE_SYSTEM);
    GOOD(tavo_save_configuration(options.backup, result.after, 1, &problem));

    GOOD(tavo_write_configuration(device, block, NULL, NULL, NULL, &result, &problem));
    CHECK(result.written && strcmp(result.serial, "00001234") == 0 && strcmp(result.pending_serial, "NEW") == 0);
    GOOD(tavo_set_scb0_role(device, TAVO_SCB0_ROLE_I2C, NULL, NULL, &result, &problem));
    CHECK(result.written);
    CHECK(tavo_set_scb0_role(device, TAVO_SCB0_ROLE_OTHER, NULL, NULL, &result, &problem) == TAVO_PROBLEM_BAD_ARGUMENT);
    block[0] ^= 0xFF;  // the signature
    CHECK(tavo_write_configuration(device, block, NULL, NULL, NULL, NULL, &problem) == TAVO_PROBLEM_FILE_REFUSED);

    const uint8_t id[TAVO_NEURON_ID_SIZE] = {5, 1, 2, 3, 4, 5};
    uint8_t stored[TAVO_NEURON_ID_SIZE];
    uint32_t written = 0;
    GOOD(tavo_store_neuron_id(device, id, NULL, stored, &written, &problem));
    CHECK(written && memcmp(stored, id, sizeof id) == 0);
    GOOD(tavo_store_neuron_id(device, id, NULL, NULL, &written, &problem));
    CHECK(!written);
    tavo_close_device(device);
}

void cTalksToTheNeuron(void) {
    tavo_device* device = opened();
    uint8_t id[TAVO_NEURON_ID_SIZE];
    uint8_t stored[TAVO_NEURON_ID_SIZE];
    uint8_t program[TAVO_PROGRAM_ID_SIZE] = {0};
    GOOD(tavo_read_neuron_id(device, NULL, id, &problem));
    GOOD(tavo_store_neuron_id(device, NULL, NULL, stored, NULL, &problem));
    CHECK(memcmp(id, stored, sizeof id) == 0);
    GOOD(tavo_read_program_id(device, NULL, program, &problem));
    CHECK(program[0] != 0);
    tavo_neuron_status status = {.size = sizeof status};
    tavo_mode_change change = {.size = sizeof change};
    GOOD(tavo_set_mode(device, TAVO_MODE_OFFLINE, NULL, &change, &problem));
    GOOD(tavo_read_status(device, NULL, &status, &problem));
    CHECK(change.after == 0x06 && status.node_state == 0x06 && strcmp(status.node_state_name, "unknown") != 0);
    CHECK(tavo_set_mode(device, 4, NULL, &change, &problem) == TAVO_PROBLEM_BAD_ARGUMENT);
    double seconds = 0;
    GOOD(tavo_reset_neuron(device, TAVO_RESET_BY_MESSAGE, NULL, &seconds, &problem));
    GOOD(tavo_reset_neuron(device, TAVO_RESET_BY_LINE, NULL, &seconds, &problem));
    GOOD(tavo_press_service_pin(device, NULL, &problem));

    tavo_domain table[2];
    tavo_domain again[2];
    GOOD(tavo_read_domain_table(device, NULL, table, &problem));
    memcpy(table[1].domain_id, "\x7A", 1);
    table[1].domain_id_length = 1;
    table[1].subnet = 3;
    table[1].node = 9 | 0x80;
    uint32_t changed = 0;
    GOOD(tavo_write_domain_table(device, NULL, table, NULL, NULL, &changed, &problem));
    CHECK(changed == 2);
    GOOD(tavo_read_domain_table(device, NULL, again, &problem));
    CHECK(again[1].subnet == 3 && again[1].node == (9 | 0x80) && again[1].domain_id[0] == 0x7A);
    tavo_close_device(device);
}

void cLooksForWhatIsWrong(void) {
    tavo_device* device = opened();
    tavo_report* report = NULL;
    tavo_health health = {.size = sizeof health};
    tavo_finding finding = {.size = sizeof finding};
    GOOD(tavo_doctor(device, NULL, NULL, &health, &report, &problem));
    CHECK(health.failed == 0 && health.state.scb0 == TAVO_SCB0_GIVEN_BACK && tavo_finding_count(report) > 5);
    GOOD(tavo_report_finding(report, 0, &finding, &problem));
    CHECK(finding.verdict == TAVO_VERDICT_OK && finding.item[0] != '\0');
    CHECK(tavo_report_finding(report, 999, &finding, &problem) == TAVO_PROBLEM_BAD_ARGUMENT);
    tavo_free_report(report);
    GOOD(tavo_recover(device, NULL, &health, &report, &problem));
    CHECK(tavo_finding_count(report) > 3 && health.state.reset_line == TAVO_LINE_RELEASED);
    tavo_free_report(report);
    tavo_close_device(device);
}

void cPutsBackWhatWasThere(void) {
    tavo_device* device = opened();
    tavo_domain before[2];
    tavo_domain table[2];
    GOOD(tavo_read_domain_table(device, NULL, before, &problem));
    memcpy(table, before, sizeof table);
    table[0].node ^= 1;
    const tavo_domain_options keys = {.size = sizeof keys, .keep_keys = 1};
    GOOD(tavo_write_domain_table(device, before, table, &keys, NULL, NULL, &problem));
    GOOD(tavo_set_serial_number(device, "NEW", NULL, NULL, NULL, &problem));
    tavo_backup_list* list = NULL;
    GOOD(tavo_find_backups(device, &list, &problem));
    CHECK(tavo_backup_count(list) == 2);
    tavo_backup backup = {.size = sizeof backup};
    GOOD(tavo_listed_backup(list, 0, &backup, &problem));
    if (backup.kind != TAVO_BACKUP_CONFIGURATION) GOOD(tavo_listed_backup(list, 1, &backup, &problem));
    CHECK(backup.kind == TAVO_BACKUP_CONFIGURATION && backup.bytes == TAVO_CONFIGURATION_SIZE && !backup.is_damaged);
    CHECK(tavo_listed_backup(list, 99, &backup, &problem) == TAVO_PROBLEM_BAD_ARGUMENT);
    tavo_free_backup_list(list);

    tavo_restore_result done = {.size = sizeof done};
    GOOD(tavo_restore(device, TAVO_BACKUP_CONFIGURATION, backup.id, NULL, NULL, &done, &problem));
    CHECK(done.changed && done.changed_bytes > 0 && done.backup[0] != '\0');
    const tavo_restore_options plain = {.size = sizeof plain, .no_backup = 1};
    GOOD(tavo_restore(device, TAVO_BACKUP_DOMAINS, NULL, &plain, NULL, &done, &problem));
    CHECK(done.changed && done.domains == 1 && done.kept_keys == 0 && done.backup[0] == '\0');
    GOOD(tavo_read_domain_table(device, NULL, table, &problem));
    CHECK(memcmp(table, before, sizeof table) == 0);

    CHECK(tavo_restore(device, TAVO_BACKUP_FLASH, NULL, NULL, NULL, NULL, &problem) == TAVO_PROBLEM_FILE_SYSTEM);
    tavo_image* image = noise();
    tavo_program_result programmed = {.size = sizeof programmed};
    GOOD(tavo_program_flash(device, image, NULL, NULL, &programmed, &problem));
    CHECK(programmed.backup[0] == '\0');                                 // there was nothing to lose
    tavo_program_options keeping = {.size = sizeof keeping, .keep = 1};  // for which all of the chip is read
    GOOD(tavo_add_bytes(image, 0, (const uint8_t*)"\0", 1, NULL, &problem));
    GOOD(tavo_program_flash(device, image, &keeping, NULL, &programmed, &problem));
    CHECK(programmed.backup[0] == '/');
    keeping.no_backup = 1;
    GOOD(tavo_add_bytes(image, 1, (const uint8_t*)"\0", 1, NULL, &problem));
    GOOD(tavo_program_flash(device, image, &keeping, NULL, &programmed, &problem));
    CHECK(programmed.way == TAVO_PROGRAM_SECTORS && programmed.backup[0] == '\0');
    GOOD(tavo_restore(device, TAVO_BACKUP_FLASH, NULL, NULL, NULL, &done, &problem));
    CHECK(done.changed && done.pages_written > 0 && done.state.flash == TAVO_FLASH_PROGRAMMED);
    tavo_free_image(image);
    image = noise();
    tavo_verify_result compared = {.size = sizeof compared};
    GOOD(tavo_verify_flash(device, image, NULL, NULL, &compared, &problem));
    CHECK(compared.equal);
    tavo_free_image(image);
    CHECK(tavo_restore(device, 3, NULL, NULL, NULL, NULL, &problem) == TAVO_PROBLEM_BAD_ARGUMENT);

    tavo_history* history = NULL;
    tavo_history_entry entry = {.size = sizeof entry};
    uint32_t needed = 0;
    tavo_device_description own = {.size = sizeof own};
    GOOD(tavo_describe_device(device, &own, &problem));
    GOOD(tavo_read_history(own.path, &history, &problem));
    CHECK(tavo_entry_count(history) == 8);
    GOOD(tavo_listed_entry(history, 1, &entry, &problem));
    CHECK(strcmp(entry.action, "set-serial") == 0 && strcmp(entry.result, "done") == 0);
    GOOD(tavo_history_faults(history, NULL, 0, &needed, &problem));
    CHECK(needed == 1);
    tavo_free_history(history);
    tavo_close_device(device);
}

void cIsToldOfAFailedProgram(void) {
    tavo_device* device = opened();
    tavo_image* image = noise();
    const tavo_program_options named = {.size = sizeof named, .image_name = "noise"};
    CHECK(tavo_program_flash(device, image, &named, NULL, NULL, &problem) == TAVO_PROBLEM_DEVICE_FAILED);
    CHECK(problem.result == TAVO_PROBLEM_DEVICE_FAILED && strcmp(problem.name, "device-failed") == 0);
    CHECK(problem.has_status && strcmp(problem.status_name, "TAVO_FLASH_PROGRAMMING_FAILED") == 0);
    CHECK(problem.state.flash == TAVO_FLASH_INCOMPLETE && problem.state.flash_lost && !problem.state.something_held);
    CHECK(strstr(problem.state.text, "flash incomplete") != NULL && problem.hint[0] != '\0');
    tavo_interrupted_run run = {.size = sizeof run};
    GOOD(tavo_find_interrupted_run(device, &run, &problem));
    CHECK(run.found && run.flash == TAVO_FLASH_INCOMPLETE && strstr(run.image, "/noise") != NULL &&
          run.hint[0] != '\0');
    CHECK(tavo_program_flash(device, image, NULL, NULL, NULL, NULL) == TAVO_OK);  // also without a record
    GOOD(tavo_find_interrupted_run(device, &run, &problem));
    CHECK(!run.found && run.text[0] == '\0');
    tavo_free_image(image);
    tavo_close_device(device);
}

struct run {
    tavo_device* device;
    tavo_monitor* monitor;
    tavo_result reentered;
};

static void* cancelIt(void* monitor) {
    CHECK(tavo_cancel(monitor) == TAVO_OK);
    return NULL;
}

static void stopWhileProgramming(const tavo_event* event, void* context) {
    struct run* run = context;
    if (event->kind != TAVO_EVENT_PROGRESS || event->phase != TAVO_PHASE_PROGRAM || event->done == 0) return;
    run->reentered = tavo_press_service_pin(run->device, NULL, NULL);
    pthread_t thread;
    pthread_create(&thread, NULL, cancelIt, run->monitor);
    pthread_join(thread, NULL);
}

void cIsStoppedByAnotherThread(void) {
    struct run run = {.device = opened()};
    tavo_image* image = noise();
    GOOD(tavo_new_monitor(&run.monitor, &problem));
    const tavo_control control = {
        .size = sizeof control, .observer = stopWhileProgramming, .context = &run, .monitor = run.monitor};
    CHECK(tavo_program_flash(run.device, image, NULL, &control, NULL, &problem) == TAVO_PROBLEM_INTERRUPTED);
    CHECK(problem.state.flash == TAVO_FLASH_INCOMPLETE && problem.state.reset_line == TAVO_LINE_RELEASED);
    CHECK(run.reentered == TAVO_PROBLEM_BUSY);
    tavo_progress progress = {.size = sizeof progress};
    GOOD(tavo_read_progress(run.monitor, &progress, &problem));
    CHECK(progress.is_cancelled && progress.phase == TAVO_PHASE_PROGRAM && progress.done < progress.total);
    CHECK(tavo_reset_monitor(run.monitor) == TAVO_OK);
    GOOD(tavo_read_progress(run.monitor, &progress, &problem));
    CHECK(!progress.is_cancelled && progress.phase == TAVO_PHASE_NONE);
    tavo_free_monitor(run.monitor);
    tavo_free_image(image);
    tavo_close_device(run.device);
}

void cIsRefusedNulls(void) {
    tavo_device* device = opened();
    tavo_image* image = noise();
    const tavo_result results[] = {
        tavo_find_devices(NULL, NULL, &problem),
        tavo_listed_device(NULL, 0, NULL, &problem),
        tavo_open_device(NULL, 0, NULL, NULL, &problem),
        tavo_open_listed_device(NULL, 0, &(tavo_device*){NULL}, &problem),
        tavo_describe_device(NULL, NULL, &problem),
        tavo_is_attached(NULL, NULL, &problem),
        tavo_simulated_environment(NULL, NULL, 0, NULL, &problem),
        tavo_new_monitor(NULL, &problem),
        tavo_cancel(NULL),
        tavo_reset_monitor(NULL),
        tavo_read_progress(NULL, NULL, &problem),
        tavo_read_image(NULL, NULL, &(tavo_image*){NULL}, &problem),
        tavo_read_image_from_descriptor(0, NULL, NULL, &(tavo_image*){NULL}, &problem),
        tavo_read_image_from_memory(NULL, 1, "name", NULL, &(tavo_image*){NULL}, &problem),
        tavo_new_image(NULL, &problem),
        tavo_add_bytes(NULL, 0, NULL, 0, NULL, &problem),
        tavo_add_bytes(image, 0, NULL, 1, NULL, &problem),
        tavo_get_bytes(image, 0, NULL, 1, &problem),
        tavo_image_ranges(image, NULL, 1, &(uint32_t){0}, &problem),
        tavo_describe_image(NULL, NULL, &problem),
        tavo_write_image(image, NULL, NULL, NULL, &problem),
        tavo_inspect_flash(NULL, NULL, NULL, &problem),
        tavo_forecast_program(NULL, NULL, NULL, &problem),
        tavo_program_flash(device, NULL, NULL, NULL, NULL, &problem),
        tavo_verify_flash(device, NULL, NULL, NULL, NULL, &problem),
        tavo_read_flash(device, NULL, NULL, NULL, NULL, &problem),
        tavo_dump_flash(device, NULL, NULL, NULL, NULL, NULL, NULL, &problem),
        tavo_erase_flash(NULL, NULL, NULL, NULL, &problem),
        tavo_blank_check_flash(NULL, NULL, NULL, NULL, &problem),
        tavo_describe_configuration(NULL, NULL, &problem),
        tavo_load_configuration(NULL, NULL, &problem),
        tavo_save_configuration("x.bin", NULL, 0, &problem),
        tavo_read_configuration(device, NULL, NULL, &problem),
        tavo_write_configuration(device, NULL, NULL, NULL, NULL, NULL, &problem),
        tavo_set_serial_number(device, NULL, NULL, NULL, NULL, &problem),
        tavo_set_scb0_role(NULL, 1, NULL, NULL, NULL, &problem),
        tavo_store_neuron_id(NULL, NULL, NULL, NULL, NULL, &problem),
        tavo_read_neuron_id(device, NULL, NULL, &problem),
        tavo_read_program_id(device, NULL, NULL, &problem),
        tavo_read_status(NULL, NULL, NULL, &problem),
        tavo_set_mode(NULL, 0, NULL, NULL, &problem),
        tavo_reset_neuron(NULL, 0, NULL, NULL, &problem),
        tavo_press_service_pin(NULL, NULL, &problem),
        tavo_read_domain_table(device, NULL, NULL, &problem),
        tavo_write_domain_table(device, NULL, NULL, NULL, NULL, NULL, &problem),
        tavo_find_interrupted_run(NULL, NULL, &problem),
        tavo_find_backups(NULL, &(tavo_backup_list*){NULL}, &problem),
        tavo_listed_backup(NULL, 0, NULL, &problem),
        tavo_restore(NULL, 0, NULL, NULL, NULL, NULL, &problem),
        tavo_read_history(NULL, NULL, &problem),
        tavo_listed_entry(NULL, 0, NULL, &problem),
        tavo_history_faults(NULL, NULL, 0, NULL, &problem),
        tavo_report_finding(NULL, 0, NULL, &problem),
        tavo_doctor(device, NULL, NULL, NULL, NULL, &problem),
        tavo_recover(device, NULL, NULL, NULL, &problem),
    };
    for (size_t i = 0; i < sizeof results / sizeof *results; ++i) {
        if (results[i] != TAVO_PROBLEM_BAD_ARGUMENT) failed(__FILE__, (int)i, "call of that number took a null");
    }
    CHECK(strstr(problem.message, "report") != NULL);
    CHECK(tavo_device_count(NULL) == 0 && tavo_finding_count(NULL) == 0);
    CHECK(tavo_backup_count(NULL) == 0 && tavo_entry_count(NULL) == 0);
    tavo_free_device_list(NULL);
    tavo_free_image(NULL);
    tavo_free_monitor(NULL);
    tavo_free_report(NULL);
    tavo_free_backup_list(NULL);
    tavo_free_history(NULL);
    tavo_close_device(NULL);
    tavo_free_image(image);
    tavo_close_device(device);
}

void cMayBeOlderOrNewer(void) {
    tavo_device* device = opened();
    // An older program knows less of a record: nothing behind its end is written.
    tavo_device_description older;
    memset(&older, 0x55, sizeof older);
    older.size = offsetof(tavo_device_description, serial);
    GOOD(tavo_describe_device(device, &older, &problem));
    CHECK(older.vendor_id == 0x04B4 && older.serial[0] == 0x55);
    // A newer one knows more: what this library does not fill is zero, what it cannot do is refused.
    struct {
        tavo_device_description known;
        uint32_t later;
    } newer = {.known.size = sizeof newer, .later = 7};
    GOOD(tavo_describe_device(device, &newer.known, &problem));
    CHECK(newer.later == 0 && newer.known.size == sizeof newer);
    struct {
        tavo_doctor_options known;
        uint32_t later;
    } wish = {.known.size = sizeof wish};
    tavo_report* report = NULL;
    GOOD(tavo_doctor(device, &wish.known, NULL, NULL, &report, &problem));
    tavo_free_report(report);
    wish.later = 1;
    CHECK(tavo_doctor(device, &wish.known, NULL, NULL, &report, &problem) == TAVO_PROBLEM_BAD_ARGUMENT);
    CHECK(strstr(problem.message, "later version") != NULL);

    tavo_device_description unset = {.size = 0};
    CHECK(tavo_describe_device(device, &unset, &problem) == TAVO_PROBLEM_BAD_ARGUMENT);
    tavo_error unusable = {.size = 0};
    CHECK(tavo_describe_device(device, NULL, &unusable) == TAVO_PROBLEM_BAD_ARGUMENT);
    // A text is cut between two characters, wherever the middle of one comes to lie: each "é" has two bytes.
    for (int shift = 0; shift < 2; ++shift) {
        char path[3001] = "x";
        path[shift] = '\0';
        for (int i = 0; i < 1499; ++i) strcat(path, "\xC3\xA9");
        tavo_image* image = NULL;
        CHECK(tavo_read_image(path, NULL, &image, &problem) == TAVO_PROBLEM_FILE_SYSTEM);
        const size_t length = strlen(problem.message);
        CHECK(length >= sizeof problem.message - 2 && strcmp(problem.message + length - 4, "\xA9...") == 0);
    }
    CHECK(strcmp(tavo_result_name(99), "unknown") == 0 && strcmp(tavo_result_name(-1), "unknown") == 0);
    CHECK(strcmp(tavo_phase_name(TAVO_PHASE_ERASE), "erase") == 0 && strcmp(tavo_phase_name(99), "") == 0);
    CHECK(tavo_version()[0] != '\0');
    tavo_close_device(device);
}
