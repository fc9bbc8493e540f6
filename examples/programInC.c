// Programs and verifies one interface from C, and tells what became of it when that fails.
//
//   programInC serial:00001234 FILE.hex BACKUP.hex               on a device
//   tavo-sim board -- programInC sim:board FILE.hex BACKUP.hex   on a simulated interface in the folder board
#include <stdio.h>
#include <tavo/service.h>

static void showProgress(const tavo_event* event, void* context) {
    (void)context;
    if (event->kind == TAVO_EVENT_PHASE_BEGINS) fprintf(stderr, "%s\n", tavo_phase_name(event->phase));
    if (event->kind == TAVO_EVENT_PROGRESS && event->total > 0) {
        fprintf(stderr, "%3u %%\r", (unsigned)(event->done * 100 / event->total));
    }
}

/// The exit code: 0 equal to the file, 1 the flash is as it was or differs, 2 the flash may lack its image.
static int told(const tavo_error* error) {
    if (error->result == TAVO_OK) return 0;
    fprintf(stderr, "failed: %s\n%s", error->message, error->details);
    fprintf(stderr, "the device: %s\nwhat next:  %s\n", error->state.text, error->hint);
    return error->state.flash_lost ? 2 : 1;
}

static int program(tavo_device* device, const tavo_image* image, const char* backup) {
    const tavo_program_options options = {.size = sizeof options, .backup = backup};
    const tavo_control control = {.size = sizeof control, .observer = showProgress};
    tavo_program_result done = {.size = sizeof done};
    tavo_verify_result found = {.size = sizeof found};
    tavo_error error = {.size = sizeof error};
    if (tavo_program_flash(device, image, &options, &control, &done, &error) != TAVO_OK ||
        tavo_verify_flash(device, image, NULL, &control, &found, &error) != TAVO_OK) {
        return told(&error);
    }
    printf("%u pages in %s, %s the file\n", done.pages_written, done.chip.text,
           found.equal ? "equal to" : "DIFFERENT from");
    return found.equal ? 0 : 1;
}

int main(int argc, char** argv) {
    if (argc != 4) {
        fprintf(stderr, "usage: programInC DEVICE FILE BACKUP\n");
        return 1;
    }
    tavo_image* image = NULL;
    tavo_device* device = NULL;
    tavo_error error = {.size = sizeof error};
    int code = 0;
    if (tavo_read_image(argv[2], NULL, &image, &error) == TAVO_OK &&       // a bad file is refused before any device
        tavo_open_device(argv[1], 0, NULL, &device, &error) == TAVO_OK) {  // is touched
        code = program(device, image, argv[3]);
    }
    if (error.result != TAVO_OK) code = told(&error);
    tavo_close_device(device);
    tavo_free_image(image);
    return code;
}
