// The service layer for C11, and for languages that call C: C#, LabVIEW, Rust, Go. In libtavo-service.so.
//
// What holds for all of it:
//
// Results. A function that can fail returns a tavo_result: TAVO_OK, or the kind of failure. With an error record
// given (null: none), the record then tells what failed, what is known of the device, and what to do next; after
// TAVO_OK its texts are empty. Nothing is thrown across this border, whatever happens; nothing is printed.
//
// Records. One with a first member `size` may grow at its end in later versions: set it to sizeof the record
// before the call, so that programs and libraries of different versions understand each other. Another first
// member: the record never grows. Of a record of options, zero after `size` always means the default, and so does
// null in its place. A record that is filled for the caller may be null when it is not wanted; it keeps its value
// when the function fails, unless said otherwise. A size of 0, or an option that this library does not know, is
// TAVO_PROBLEM_BAD_ARGUMENT, before anything is done.
//
// Texts are UTF-8 and end with a zero byte. Those in records are cut where they do not fit, and end in "..." then.
//
// Handles are made by tavo_open_..., tavo_read_..., tavo_new_... and so on, and given back by the function that
// the maker's contract names. On failure the place for a handle is set to null. A null handle, or null for a
// needed argument, is TAVO_PROBLEM_BAD_ARGUMENT; functions that give a handle back do nothing then.
//
// Threads. Every function may be called from any thread, and several devices are worked on side by side, a
// thread each. One device is for one thread at a time: a call while another one runs on the same handle is refused
// with TAVO_PROBLEM_BUSY. An image may be read by several threads at once, but not changed meanwhile.
// tavo_cancel and tavo_read_progress are for other threads than the one that works.
//
// Memory and files. Everything handed in is borrowed until the function returns.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "tavo/export.h"

#ifdef __cplusplus
extern "C" {
#endif

// --- Results

/// TAVO_OK or a kind of failure. A program decides by this; people read the texts.
typedef int32_t tavo_result;
enum {
    TAVO_OK = 0,
    TAVO_PROBLEM_INTERNAL = 1,         ///< a fault of this library, or no memory
    TAVO_PROBLEM_BAD_ARGUMENT = 2,     ///< what was asked for makes no sense
    TAVO_PROBLEM_NO_DEVICE = 3,        ///< no such device, or no longer attached
    TAVO_PROBLEM_SEVERAL_DEVICES = 4,  ///< several devices, none chosen
    TAVO_PROBLEM_NO_PERMISSION = 5,    ///< the device or the LDV channel may not be opened
    TAVO_PROBLEM_BUSY = 6,             ///< in use by another process, thread or handle
    TAVO_PROBLEM_FILE_REFUSED = 7,     ///< the file is not what is needed; the device was not touched
    TAVO_PROBLEM_FILE_SYSTEM = 8,      ///< a file on this computer cannot be read or written
    TAVO_PROBLEM_DEVICE_FAILED = 9,    ///< a step on the device failed; the state tells what the device holds now
    TAVO_PROBLEM_NO_ANSWER = 10,       ///< the Neuron, or the bridge, did not answer in time
    TAVO_PROBLEM_INTERRUPTED = 11      ///< tavo_cancel; the state tells what is released
};

/// A word for programs and logs: "ok", "no-device", "device-failed" ...; "unknown" for any other number. Static.
TAVO_API const char* tavo_result_name(tavo_result result);

/// Version of the library: "0.1.0". Static.
TAVO_API const char* tavo_version(void);

/// What is known of the flash. Never more than is known: uncertain when a step failed that may or may not have
/// reached the chip.
enum {
    TAVO_FLASH_UNTOUCHED = 0,
    TAVO_FLASH_UNCHANGED = 1,
    TAVO_FLASH_UNCERTAIN = 2,
    TAVO_FLASH_ERASED = 3,
    TAVO_FLASH_INCOMPLETE = 4,
    TAVO_FLASH_PROGRAMMED = 5
};
/// What is known of another memory of the device.
enum {
    TAVO_PART_UNTOUCHED = 0,
    TAVO_PART_UNCHANGED = 1,  ///< read, or a write that is known not to have happened
    TAVO_PART_WRITTEN = 2,
    TAVO_PART_UNCERTAIN = 3  ///< a write may or may not have happened
};
/// A line of the Neuron. Both are active low and rest high.
enum { TAVO_LINE_NOT_LOOKED = 0, TAVO_LINE_RELEASED = 1, TAVO_LINE_HELD = 2, TAVO_LINE_UNKNOWN = 3 };
/// The bridge's serial block 0 as it was found after the operation.
enum { TAVO_SCB0_NOT_LOOKED = 0, TAVO_SCB0_GIVEN_BACK = 1, TAVO_SCB0_SPI_MASTER = 2, TAVO_SCB0_UNKNOWN = 3 };

/// What is known of the device after an operation, good or bad.
typedef struct tavo_device_state {
    uint32_t flash;           ///< TAVO_FLASH_...
    uint32_t configuration;   ///< TAVO_PART_...: the bridge's configuration block
    uint32_t user_flash;      ///< TAVO_PART_...: the bridge's user flash, which keeps the Neuron ID
    uint32_t node;            ///< TAVO_PART_...: the Neuron: node state, domain table
    uint32_t reset_line;      ///< TAVO_LINE_...
    uint32_t service_line;    ///< TAVO_LINE_...
    uint32_t scb0;            ///< TAVO_SCB0_...
    uint32_t something_held;  ///< 1: a line or SCB0 is held that must not stay so: tavo_recover
    uint32_t flash_lost;      ///< 1: the flash may lack its image: uncertain, erased or incomplete
    uint32_t spare[7];        ///< 0
    char text[512];           ///< one line for people: "flash incomplete: part of the image is missing"
} tavo_device_state;

/// What went wrong. Filled by every function that takes one, owned by the caller, nothing in it to free.
typedef struct tavo_error {
    uint32_t size;            ///< of the record, set before the call
    tavo_result result;       ///< the same that the function returned
    uint32_t has_status;      ///< 1: a call of the library below failed, and status is its code
    uint32_t status;          ///< TAVO_STATUS
    uint32_t detail_count;    ///< lines there were for `details`
    uint32_t spare;           ///< 0
    tavo_device_state state;  ///< of the device, afterwards
    char name[32];            ///< tavo_result_name
    char status_name[64];     ///< "TAVO_DEVICE_BUSY"; empty without a status
    char message[1024];       ///< what failed, without a final period
    char hint[1024];          ///< what to do next; may be empty
    char details[4096];       ///< further lines, each ended by a line feed: faults of a file, devices to choose from
} tavo_error;

// --- Watching and stopping

enum {
    TAVO_PHASE_NONE = 0,
    TAVO_PHASE_WAIT = 1,
    TAVO_PHASE_CHECK = 2,
    TAVO_PHASE_BACKUP = 3,
    TAVO_PHASE_DUMP = 4,
    TAVO_PHASE_READ = 5,
    TAVO_PHASE_ERASE = 6,
    TAVO_PHASE_PROGRAM = 7,
    TAVO_PHASE_VERIFY = 8,
    TAVO_PHASE_BOOT = 9,
    TAVO_PHASE_SERVICE_MODE = 10,
    TAVO_PHASE_RESET = 11
};
/// "erase", "service mode" ...; empty for TAVO_PHASE_NONE and any other number. Static.
TAVO_API const char* tavo_phase_name(uint32_t phase);

enum {
    TAVO_EVENT_PHASE_BEGINS = 0,  ///< total: bytes, 0 without measure; seconds: of a wait of known length
    TAVO_EVENT_PROGRESS = 1,      ///< done of total bytes
    TAVO_EVENT_PHASE_ENDS = 2,    ///< text: a remark
    TAVO_EVENT_STOP_NOTE = 3,     ///< text: what cancelling does in this phase, when it cannot stop at once
    TAVO_EVENT_RETRY = 4,         ///< address: a page that needed another attempt; done: attempts so far
    TAVO_EVENT_WARNING = 5,       ///< text, hint
    TAVO_EVENT_STEP = 6           ///< text: for a log
};
/// One thing that an operation tells while it works. Good only until the observer returns, texts included.
typedef struct tavo_event {
    uint32_t size;     ///< of the record, set before the call
    uint32_t kind;     ///< TAVO_EVENT_...
    uint32_t phase;    ///< TAVO_PHASE_...
    uint32_t address;  ///< in the flash
    uint64_t done;     ///< bytes
    uint64_t total;    ///< bytes
    double seconds;    ///< that it took
    const char* text;  ///< never null
    const char* hint;  ///< never null
} tavo_event;

/// Called by the thread that called the operation, often (every page): must return soon, and must not leave by
/// longjmp. A call on the same device from in here is refused.
typedef void (*tavo_observer)(const tavo_event* event, void* context);

/// An operation as other threads see it: how far it is, and a way to stop it. One may be given to several
/// operations, also at the same time: it stops all of them, and shows what was told last.
typedef struct tavo_monitor tavo_monitor;

/// Free it with tavo_free_monitor after every operation that it was given to has returned.
TAVO_API tavo_result tavo_new_monitor(tavo_monitor** monitor, tavo_error* error);
/// Gives a monitor back; null does nothing.
TAVO_API void tavo_free_monitor(tavo_monitor* monitor);
/// Stops the operations that it is given to: they end at the next page, chunk or message, release everything and
/// fail with TAVO_PROBLEM_INTERRUPTED. Returns at once; also for signal handlers. A later operation stops at once.
TAVO_API tavo_result tavo_cancel(tavo_monitor* monitor);
/// Makes it as new, for the next operation. Not while one runs.
TAVO_API tavo_result tavo_reset_monitor(tavo_monitor* monitor);

/// What an operation is doing.
typedef struct tavo_progress {
    uint32_t size;          ///< of the record, set before the call
    uint32_t phase;         ///< TAVO_PHASE_...; none before the first
    uint64_t done;          ///< bytes of it
    uint64_t total;         ///< bytes; 0 without measure
    uint32_t is_cancelled;  ///< 1 after tavo_cancel
    uint32_t warnings;      ///< so far
    char warning[1024];     ///< the last one, its hint after it
} tavo_progress;
/// For a display that looks from time to time instead of being called.
TAVO_API tavo_result tavo_read_progress(const tavo_monitor* monitor, tavo_progress* progress, tavo_error* error);

/// Who watches and stops an operation; everything in it is optional.
typedef struct tavo_control {
    uint32_t size;           ///< of the record, set before the call
    uint32_t spare;          ///< 0
    tavo_observer observer;  ///< called at each event; may be null
    void* context;           ///< handed to the observer as it is
    tavo_monitor* monitor;   ///< read by another thread with tavo_read_progress; may be null
} tavo_control;

// --- Devices

enum { TAVO_SCB0_ROLE_OTHER = 0, TAVO_SCB0_ROLE_SPI = 1, TAVO_SCB0_ROLE_I2C = 2 };

/// One attached interface as it was found.
typedef struct tavo_device_description {
    uint32_t size;           ///< of the record, set before the call
    uint32_t vendor_id;      ///< USB vendor ID
    uint32_t product_id;     ///< USB product ID
    uint32_t scb0_role;      ///< TAVO_SCB0_ROLE_...: what serial block 0 is on USB
    uint32_t access;         ///< TAVO_STATUS; 0: it can be opened; 8: this user may not
    uint32_t is_held;        ///< 1: locked by a process
    int32_t holder;          ///< its process ID; 0 when that is not known
    uint32_t spare;          ///< 0
    char name[1536];         ///< "00001234 at 1-4.2", for messages
    char serial[256];        ///< empty when it has none, or when it cannot be read
    char path[1024];         ///< port, "1-4.2"; of a simulated interface "sim:" and its folder
    char manufacturer[256];  ///< as the device tells it: not safe for a terminal, nor for a file name
    char product[256];       ///< the same
    char neuron_id[16];      ///< 12 upper-case digits; empty when the bridge keeps none, or the device is in use
} tavo_device_description;

/// The interfaces that were attached when it was made, in the order of their ports.
typedef struct tavo_device_list tavo_device_list;

/// @param spec  "serial:TEXT", "usb:BUS-PORT", "neuron:HEX12", "sim:DIR", or a bare serial number: only those that
///              it matches; null: all
/// Finding none is no failure. Disturbs no run of another process. Blocks for a few control transfers a device.
/// Free the list with tavo_free_device_list.
TAVO_API tavo_result tavo_find_devices(const char* spec, tavo_device_list** list, tavo_error* error);
/// Gives a list back; null does nothing.
TAVO_API void tavo_free_device_list(tavo_device_list* list);
/// How many there are; 0 for null.
TAVO_API uint32_t tavo_device_count(const tavo_device_list* list);
/// @param index  from 0
TAVO_API tavo_result tavo_listed_device(const tavo_device_list* list, uint32_t index,
                                        tavo_device_description* description, tavo_error* error);

/// One interface, locked against other processes and other handles of this one until tavo_close_device.
typedef struct tavo_device tavo_device;

/// Finds the one interface that spec names (null: the only one attached) and locks it. Nothing is sent to it but
/// what finding it needs. Blocks until it is attached, at most wait_seconds; the control watches and stops that.
/// Failures: no device, several (the details list them), no permission, busy.
TAVO_API tavo_result tavo_open_device(const char* spec, uint32_t wait_seconds, const tavo_control* control,
                                      tavo_device** device, tavo_error* error);
/// The same of one that was found, without looking again. The list may be freed afterwards.
TAVO_API tavo_result tavo_open_listed_device(const tavo_device_list* list, uint32_t index, tavo_device** device,
                                             tavo_error* error);
/// Unlocks it. No operation may be running on it.
TAVO_API void tavo_close_device(tavo_device* device);
/// What is known of an open device without asking it.
TAVO_API tavo_result tavo_describe_device(const tavo_device* device, tavo_device_description* description,
                                          tavo_error* error);
/// Whether something is plugged in at that port still: 1 or 0. Opens nothing.
TAVO_API tavo_result tavo_is_attached(const char* path, uint32_t* is_attached, tavo_error* error);
/// Accepts one more pair of USB IDs for the rest of the process.
TAVO_API tavo_result tavo_allow_usb_id(uint16_t vendor_id, uint16_t product_id, tavo_error* error);

/// The environment variables that a program has to be started with to see the simulated interface of this
/// description ("sim:DIR[,OPTIONS]") and no device: "NAME=VALUE", each ended by a zero byte, the last one by two.
/// A program cannot move onto it while it runs; `tavo-sim DIR -- program` starts one.
/// @param buffer    may be null when capacity is 0
/// @param needed    bytes of all of it, also when they do not fit; the buffer is filled when they do. May be null.
TAVO_API tavo_result tavo_simulated_environment(const char* spec, char* buffer, uint32_t capacity, uint32_t* needed,
                                                tavo_error* error);
/// 1 when this process sees simulated interfaces only. A program that was to be started so asks this first: the
/// dynamic linker merely warns of a simulated interface that it cannot load.
TAVO_API uint32_t tavo_is_on_simulated_interfaces(void);

// --- Images: the bytes of a flash by address, with gaps

enum {
    TAVO_FORMAT_AUTOMATIC = 0,
    TAVO_FORMAT_HEX = 1,
    TAVO_FORMAT_SRECORD = 2,
    TAVO_FORMAT_BINARY = 3,
    TAVO_FORMAT_ELF = 4
};

/// First and last address of some bytes side by side.
typedef struct tavo_range {
    uint32_t first;  ///< the first address
    uint32_t last;   ///< the last address itself
} tavo_range;

/// Memory: 72 KiB for each 64 KiB of addresses that hold a byte. Free it with tavo_free_image.
typedef struct tavo_image tavo_image;

/// How a file is read.
typedef struct tavo_read_options {
    uint32_t size;       ///< of the record, set before the call
    uint32_t format;     ///< TAVO_FORMAT_...; automatic: by the content, and raw binary by the name's ending (.bin)
    uint32_t strict;     ///< 1: plain Intel HEX only: record types 00, 01 and 04, line feeds, nothing else
    uint32_t chip_size;  ///< data above it are a fault: bytes; 0: 16 MiB, which is all that can be addressed
    uint32_t address;    ///< of the first byte of a raw binary; other than 0 a fault for the other formats
    uint32_t spare;      ///< 0
} tavo_read_options;

/// Reads a file: Intel HEX, Motorola S-record, ELF, raw binary, each also packed by gzip. One with a fault is
/// refused, every fault with its line in the details. Blocks for reading; no device is needed.
TAVO_API tavo_result tavo_read_image(const char* path, const tavo_read_options* options, tavo_image** image,
                                     tavo_error* error);
/// The same from an open descriptor (a pipe, standard input), read to its end; it stays open.
/// @param name  what messages call it; its ending may tell the format
TAVO_API tavo_result tavo_read_image_from_descriptor(int descriptor, const char* name, const tavo_read_options* options,
                                                     tavo_image** image, tavo_error* error);
/// The same from what such a file holds.
TAVO_API tavo_result tavo_read_image_from_memory(const void* bytes, size_t count, const char* name,
                                                 const tavo_read_options* options, tavo_image** image,
                                                 tavo_error* error);
/// An image without a byte, for tavo_add_bytes.
TAVO_API tavo_result tavo_new_image(tavo_image** image, tavo_error* error);
/// Gives an image back; null does nothing.
TAVO_API void tavo_free_image(tavo_image* image);

/// Sets bytes; they replace those that were there. address + count is at most 16 MiB.
/// @param replaced_at  may be null; the first address where another byte stood, -1 when there was none
TAVO_API tavo_result tavo_add_bytes(tavo_image* image, uint32_t address, const uint8_t* bytes, uint32_t count,
                                    int64_t* replaced_at, tavo_error* error);
/// Copies bytes out; FF, as an erased chip has it, where the image has none.
TAVO_API tavo_result tavo_get_bytes(const tavo_image* image, uint32_t address, uint8_t* bytes, uint32_t count,
                                    tavo_error* error);
/// The parts that hold bytes, by address.
/// @param ranges    may be null when capacity is 0; filled as far as they fit
/// @param count     how many there are
TAVO_API tavo_result tavo_image_ranges(const tavo_image* image, tavo_range* ranges, uint32_t capacity, uint32_t* count,
                                       tavo_error* error);

/// What an image is.
typedef struct tavo_image_description {
    uint32_t size;             ///< of the record, set before the call
    uint32_t format;           ///< TAVO_FORMAT_... of the file; automatic for one that was not read from a file
    uint64_t byte_count;       ///< of the image
    uint64_t file_bytes;       ///< of the file as stored
    uint32_t first;            ///< lowest address with a byte; 0 of an empty image
    uint32_t last;             ///< highest
    uint32_t range_count;      ///< parts without a gap
    uint32_t touched_pages;    ///< pages of 256 bytes with a byte
    uint32_t pages_with_data;  ///< with a byte that is not FF
    uint32_t change_count;     ///< lines there were for `changes`
    char identity[72];         ///< SHA-256 of bytes and addresses: the same whatever file format it came from
    char file_sha256[72];      ///< of the file as stored; empty for one that was not read from a file
    char changes[2048];        ///< how the file differs in form from strict Intel HEX, lines ended by line feeds
} tavo_image_description;
/// Computes the identity: about 5 ms a MiB.
TAVO_API tavo_result tavo_describe_image(const tavo_image* image, tavo_image_description* description,
                                         tavo_error* error);

/// How an image is written.
typedef struct tavo_write_options {
    uint32_t size;          ///< of the record, set before the call
    uint32_t format;        ///< TAVO_FORMAT_... hex, srecord or binary; automatic: by the name's ending, else hex
    uint32_t record_bytes;  ///< data bytes of a record, 1 to 255 (S-record: 251); 0: 32
    uint32_t address;       ///< of the first byte of a raw binary
    uint32_t replace;       ///< 1: a file of that name may be replaced
    uint32_t spare;         ///< 0
} tavo_write_options;
/// What was written.
typedef struct tavo_written_file {
    uint32_t size;    ///< of the record, set before the call
    uint32_t spare;   ///< 0
    uint64_t bytes;   ///< of the file
    char sha256[72];  ///< of the file
} tavo_written_file;
/// Writes a file, whole or not at all; it is on the disk when this returns. A raw binary has FF in the gaps.
TAVO_API tavo_result tavo_write_image(const tavo_image* image, const char* path, const tavo_write_options* options,
                                      tavo_written_file* written, tavo_error* error);

// --- The SPI flash that holds the Neuron's firmware
//
// Each operation makes SCB0 an SPI master, holds the Neuron in reset, does its work, gives both back and looks
// whether they are: TAVO_OK is only returned for an interface that was seen to be let go. The Neuron starts anew.
// Cancelled, they end at the next page or chunk; a chip erase is waited for. On failure the error's state tells what
// the flash holds.

/// Which part of the chip an operation works on, and how fast; null in its place: all of it.
typedef struct tavo_flash_options {
    uint32_t size;       ///< of the record, set before the call
    uint32_t has_range;  ///< 1: only this range
    tavo_range range;    ///< counts when has_range is 1
    uint32_t clock_hz;   ///< 900,000 (as 0) to 3,000,000. Above, ID and first page are read at both clocks before
                         ///< anything else; a difference is a failure.
    uint32_t spare;      ///< 0
} tavo_flash_options;

/// What a flash chip tells of itself.
typedef struct tavo_flash_chip {
    uint32_t maker;          ///< JEDEC manufacturer ID
    uint32_t memory_type;    ///< second byte of the JEDEC ID
    uint32_t capacity_code;  ///< third byte of the JEDEC ID
    uint32_t capacity;       ///< bytes
    uint32_t spare[4];       ///< 0
    char text[112];          ///< "Winbond, ID EF 40 14, 1 MiB"
} tavo_flash_chip;

/// One way to erase a part of a chip.
typedef struct tavo_erase_type {
    uint32_t opcode;  ///< the command byte; 0: no such type
    uint32_t bytes;   ///< that it erases
    double typical;   ///< seconds; 0: not told
    double longest;   ///< seconds
} tavo_erase_type;

/// A chip, and what its own description (SFDP, JEDEC JESD216) tells. Times in seconds; 0: not told.
typedef struct tavo_flash_description {
    uint32_t size;                   ///< of the record, set before the call
    uint32_t has_sfdp;               ///< 1: it has a description that makes sense
    tavo_flash_chip chip;            ///< that was found
    double program_typical;          ///< of a page of 256 bytes
    double program_longest;          ///< seconds for a page; 0: not told
    double erase_typical;            ///< of the whole chip
    double erase_longest;            ///< seconds; 0: not told
    uint32_t spare;                  ///< 0
    uint32_t erase_type_count;       ///< valid entries of erase_types
    tavo_erase_type erase_types[4];  ///< smallest first
    char sfdp_fault[256];            ///< why the description that it has is not used
    char usual_erase_time[64];       ///< of the whole chip, for people: "usually 2 to 12 s"
} tavo_flash_description;
/// Reads the chip's ID and description. Blocks for some 0.1 s, and 1.6 s of waits.
TAVO_API tavo_result tavo_inspect_flash(tavo_device* device, const tavo_control* control,
                                        tavo_flash_description* description, tavo_error* error);

/// How an image is programmed.
typedef struct tavo_program_options {
    uint32_t size;           ///< of the record, set before the call
    uint32_t full;           ///< 1: erases the whole chip and programs every page, whatever it holds
    uint32_t keep;           ///< 1: what the image does not cover stays as it is, not FF. All of the chip is first put
                             ///< into a private file, from which the next run takes it, should this one be cut off;
                             ///< not with full
    uint32_t has_range;      ///< 1: programs only what the image has in this range; implies keep
    tavo_range range;        ///< counts when has_range is 1
    uint32_t clock_hz;       ///< see tavo_flash_options
    uint32_t no_backup;      ///< 1: keeps nothing among the backups of the interface (tavo_find_backups). Otherwise
                             ///< what was in the chip is kept there when all of it was read, for the plan or a backup.
    const char* backup;      ///< file to save the whole flash in before anything is erased: .hex, .srec, .bin; must
                             ///< not exist yet; null: none
    const char* image_name;  ///< for messages, and for what this computer remembers of a run that is cut off: without a
                             ///< name that looks like an erase; null: the file that the image was read from
} tavo_program_options;

/// What a programming is going to do.
typedef struct tavo_program_forecast {
    uint32_t size;           ///< of the record, set before the call
    uint32_t pages_written;  ///< at most: fewer when some are there already
    uint32_t pages_blank;    ///< pages of FF: the erase leaves them so
    uint32_t chip_size;      ///< that the times are for, in bytes: the smallest usual chip that holds the image
    double full_seconds;     ///< erasing the whole chip, with keep all sectors of the image, and programming all
    double least_seconds;    ///< when the image is there already
    double sector_seconds;   ///< more than that, for each 4 KiB that must be erased and programmed
    char steps[128];         ///< in their order, separated by blanks: "read backup erase program verify"
} tavo_program_forecast;
/// What tavo_program_flash is going to do, as far as it is known without the device; fails as that would before
/// it touches the device. Leaves no file behind.
TAVO_API tavo_result tavo_forecast_program(const tavo_image* image, const tavo_program_options* options,
                                           tavo_program_forecast* forecast, tavo_error* error);

/// How the image got into the chip.
enum {
    TAVO_PROGRAM_NOTHING = 0,  ///< it was there already
    TAVO_PROGRAM_SECTORS = 1,  ///< only sectors that had to lose a bit were erased, only pages that differed programmed
    TAVO_PROGRAM_FULL = 2      ///< the whole chip was erased
};
enum { TAVO_LISTED_RETRIES = 32 };
/// What a programming did.
typedef struct tavo_program_result {
    uint32_t size;                          ///< of the record, set before the call
    uint32_t way;                           ///< TAVO_PROGRAM_...
    tavo_flash_chip chip;                   ///< that was found
    tavo_device_state state;                ///< of the device, afterwards
    uint32_t sectors_erased;                ///< blocks of whatever size; the whole chip is none
    uint32_t pages_written;                 ///< by this run
    uint32_t pages_kept;                    ///< held their data already
    uint32_t pages_blank;                   ///< of FF: the erase left them so
    uint32_t retry_count;                   ///< pages that needed another attempt: a chip that wears out
    uint32_t retries[TAVO_LISTED_RETRIES];  ///< the addresses of the first of them
    uint32_t spare;                         ///< 0
    double seconds;                         ///< that it took
    char backup_sha256[72];                 ///< of the bytes of the chip; empty without a backup
    char backup[1024];  ///< file of what was there before: as in the options, else among the backups
} tavo_program_result;
/// Brings the image into the chip, FF elsewhere (but see keep), by the shorter way: reads what is there, then erases
/// the whole chip or the sectors that must lose a bit, programs what differs, and compares every page of the image with
/// the chip afterwards. Cut off at any point, the next run finishes it. Blocks for reading the chip (9 ms a KiB), the
/// erase, about 7.3 ms a page, and 1.6 s of waits. Fails before anything is erased when the chip is too small or the
/// backup cannot be written.
TAVO_API tavo_result tavo_program_flash(tavo_device* device, const tavo_image* image,
                                        const tavo_program_options* options, const tavo_control* control,
                                        tavo_program_result* result, tavo_error* error);

/// How flash and image are compared.
typedef struct tavo_verify_options {
    uint32_t size;        ///< of the record, set before the call
    uint32_t rest_blank;  ///< 1: what the image does not cover must be FF; the whole chip is read then
    uint32_t every;       ///< 1: finds every difference, instead of stopping after the first
    uint32_t has_range;   ///< 1: of image and chip only this part is compared
    tavo_range range;     ///< counts when has_range is 1
    uint32_t clock_hz;    ///< see tavo_flash_options
    uint32_t spare;       ///< 0
} tavo_verify_options;

/// A place where the chip does not hold what the image has.
typedef struct tavo_difference {
    tavo_range range;  ///< first to last byte that differs in pages side by side
    uint32_t bytes;    ///< of them differ
    int32_t wanted;    ///< first byte in the image; -1: the image has no data there
    int32_t found;     ///< first byte in the chip
} tavo_difference;

enum { TAVO_LISTED_DIFFERENCES = 16 };
/// How flash and image compare.
typedef struct tavo_verify_result {
    uint32_t size;              ///< of the record, set before the call
    uint32_t equal;             ///< 1: the chip holds the image
    tavo_flash_chip chip;       ///< that was found
    tavo_device_state state;    ///< of the device, afterwards
    uint64_t bytes;             ///< that differ, in what was read
    uint32_t pages;             ///< with such a byte
    uint32_t is_complete;       ///< 1: everything was read; else a difference ended it, and more may follow
    uint32_t difference_count;  ///< in what was read
    tavo_difference differences[TAVO_LISTED_DIFFERENCES];  ///< the first of them
    uint32_t spare;                                        ///< 0
} tavo_verify_result;
/// Reads what the image covers (37 ms for each 4096 bytes, and 1.6 s of waits) and compares it. A chip that differs
/// is no failure: see `equal`.
TAVO_API tavo_result tavo_verify_flash(tavo_device* device, const tavo_image* image, const tavo_verify_options* options,
                                       const tavo_control* control, tavo_verify_result* result, tavo_error* error);

/// What an operation on the flash found.
typedef struct tavo_flash_result {
    uint32_t size;            ///< of the record, set before the call
    uint32_t sectors_erased;  ///< blocks of whatever size; the whole chip is none
    tavo_flash_chip chip;     ///< that was found
    tavo_device_state state;  ///< of the device, afterwards
    double seconds;           ///< of an erase
    char backup[1024];        ///< of an erase: file of what was there before; empty: it was not read
} tavo_flash_result;

/// Reads the chip or a part of it into memory. Times as tavo_verify_flash. Free the image with tavo_free_image.
TAVO_API tavo_result tavo_read_flash(tavo_device* device, const tavo_flash_options* options,
                                     const tavo_control* control, tavo_image** contents, tavo_flash_result* result,
                                     tavo_error* error);
/// The same into a new file. Fails before the device is touched when the file cannot be made; a run
/// that fails leaves no file.
/// @param form  of the file, as of tavo_write_image; a raw binary begins where the part does unless it says otherwise
TAVO_API tavo_result tavo_dump_flash(tavo_device* device, const tavo_flash_options* options, const char* path,
                                     const tavo_write_options* form, const tavo_control* control,
                                     tavo_flash_result* result, tavo_written_file* written, tavo_error* error);
/// What is erased, and what is kept of it.
typedef struct tavo_erase_options {
    uint32_t size;       ///< of the record, set before the call
    uint32_t has_range;  ///< 1: only this range. Its borders are multiples of the chip's smallest sector, 4 KiB for one
                         ///< that tells nothing; others are refused, and the nearest ones told.
    tavo_range range;    ///< counts when has_range is 1
    uint32_t clock_hz;   ///< see tavo_flash_options
    uint32_t no_backup;  ///< see tavo_program_options
    const char* backup;  ///< file to save the whole flash in before: .hex, .srec, .bin; must not exist yet; null: none
} tavo_erase_options;
/// Erases the whole chip (blocks for seconds to minutes), or a part of it by sectors; what lies around the part is read
/// before and after, and a change is a failure.
TAVO_API tavo_result tavo_erase_flash(tavo_device* device, const tavo_erase_options* options,
                                      const tavo_control* control, tavo_flash_result* result, tavo_error* error);

/// How far a blank check goes.
typedef struct tavo_blank_check_options {
    uint32_t size;       ///< of the record, set before the call
    uint32_t every;      ///< 1: counts every page with data, instead of stopping after the first
    uint32_t has_range;  ///< 1: only this range
    tavo_range range;    ///< counts when has_range is 1
    uint32_t clock_hz;   ///< see tavo_flash_options
} tavo_blank_check_options;
/// What a blank check found.
typedef struct tavo_blank_check_result {
    uint32_t size;            ///< of the record, set before the call
    uint32_t blank;           ///< 1: every byte is FF
    tavo_flash_chip chip;     ///< that was found
    tavo_device_state state;  ///< of the device, afterwards
    int64_t first;            ///< address of the first byte that is not FF; -1: none
    uint32_t pages;           ///< with such a byte, in what was read
    uint32_t is_complete;     ///< 1: the whole chip or range was read
} tavo_blank_check_result;
/// Reads the chip up to the first byte that is not FF. Times as tavo_verify_flash.
TAVO_API tavo_result tavo_blank_check_flash(tavo_device* device, const tavo_blank_check_options* options,
                                            const tavo_control* control, tavo_blank_check_result* result,
                                            tavo_error* error);

// --- The bridge's configuration block, and the Neuron ID kept in its user flash

enum { TAVO_CONFIGURATION_SIZE = 512, TAVO_NEURON_ID_SIZE = 6, TAVO_PROGRAM_ID_SIZE = 8 };

/// What people and programs want to know of a block.
typedef struct tavo_configuration_description {
    uint32_t size;            ///< of the record, set before the call
    uint32_t vendor_id;       ///< USB vendor ID
    uint32_t product_id;      ///< USB product ID
    uint32_t max_power;       ///< mA
    uint32_t checksum_right;  ///< 1: it is
    uint32_t spare;           ///< 0
    char serial[256];         ///< UTF-8; empty when it has none
    char manufacturer[256];   ///< as the device tells it
    char product[256];        ///< as the device tells it
    char scb0[16];            ///< "SPI", "I2C", "UART", "none", "unknown"
    char format[16];          ///< "1.0.3"
    char why_bad[256];        ///< why a bridge may not come up on USB with this block; empty when it should
} tavo_configuration_description;
/// @param block  TAVO_CONFIGURATION_SIZE bytes, here as in all that follows
TAVO_API tavo_result tavo_describe_configuration(const uint8_t* block, tavo_configuration_description* description,
                                                 tavo_error* error);
/// Reads a configuration file: 512 bytes, named .bin.
TAVO_API tavo_result tavo_load_configuration(const char* path, uint8_t* block, tavo_error* error);
/// Writes one, whole or not at all.
/// @param replace  1: a file of that name may be replaced
TAVO_API tavo_result tavo_save_configuration(const char* path, const uint8_t* block, uint32_t replace,
                                             tavo_error* error);

/// Reads the block: three control requests. The bridge leaves its configuration mode on every path.
TAVO_API tavo_result tavo_read_configuration(tavo_device* device, const tavo_control* control, uint8_t* block,
                                             tavo_error* error);

/// How a configuration block is written.
typedef struct tavo_configuration_options {
    uint32_t size;       ///< of the record, set before the call
    uint32_t force;      ///< 1: writes also a block that tavo_describe_configuration calls bad
    uint32_t dry_run;    ///< 1: only tells what would be written
    uint32_t no_backup;  ///< 1: keeps no copy of what was there on this computer (tavo/service/backups.h)
    const char* backup;  ///< new .bin file for the block that was there, besides; null: none
} tavo_configuration_options;
/// What writing a configuration block did.
typedef struct tavo_configuration_result {
    uint32_t size;                            ///< of the record, set before the call
    uint32_t written;                         ///< 1: it was; 0: the bridge held it already, or a dry run
    uint32_t changed_bytes;                   ///< between before and after
    uint32_t spare;                           ///< 0
    uint8_t before[TAVO_CONFIGURATION_SIZE];  ///< what the bridge held
    uint8_t after[TAVO_CONFIGURATION_SIZE];   ///< what it holds now, with serial number and checksum made anew
    char serial[256];                         ///< that the block carries
    char backup[1024];                        ///< file of what was there before; empty: none
    char pending_serial[256];                 ///< set since it was plugged in, and lost by this rewrite; empty: none
} tavo_configuration_result;
/// Rewrites the block and reads it back; it takes effect when the interface is plugged in again. Blocks for some ten
/// control requests. A block that is bad is refused, unless forced: a bridge may never come up on USB again with one.
/// `before` in the result is filled also when the writing fails.
/// @param serial  the new serial number, 1 to 32 printable ASCII characters; null: the device keeps its own
TAVO_API tavo_result tavo_write_configuration(tavo_device* device, const uint8_t* block, const char* serial,
                                              const tavo_configuration_options* options, const tavo_control* control,
                                              tavo_configuration_result* result, tavo_error* error);
/// The same for the serial number alone. The name of the LDV channel follows it.
TAVO_API tavo_result tavo_set_serial_number(tavo_device* device, const char* serial,
                                            const tavo_configuration_options* options, const tavo_control* control,
                                            tavo_configuration_result* result, tavo_error* error);
/// The same for the role of serial block 0.
/// @param role  TAVO_SCB0_ROLE_SPI or TAVO_SCB0_ROLE_I2C
TAVO_API tavo_result tavo_set_scb0_role(tavo_device* device, uint32_t role, const tavo_configuration_options* options,
                                        const tavo_control* control, tavo_configuration_result* result,
                                        tavo_error* error);

/// Keeps the Neuron ID in the bridge's user flash and reads it back. Blocks for up to 2 s.
/// @param id       TAVO_NEURON_ID_SIZE bytes; null: the Neuron is asked
/// @param stored   may be null; TAVO_NEURON_ID_SIZE bytes: what is kept now
/// @param written  may be null; 0: it was kept there already, nothing was written
TAVO_API tavo_result tavo_store_neuron_id(tavo_device* device, const uint8_t* id, const tavo_control* control,
                                          uint8_t* stored, uint32_t* written, tavo_error* error);

// --- The Neuron
//
// Each operation holds its pins or its LDV channel only while it runs. The state of a failure tells what is known of
// the Neuron: an answer that did not come does not mean that a change was not made. When cancelled, each ends within
// a second with all lines released.

/// Reads the 48-bit Neuron ID from the Neuron itself. Blocks for at most about 1 s on a quiet channel; messages of
/// other nodes do not count, but after two minutes of nothing else it gives up.
TAVO_API tavo_result tavo_read_neuron_id(tavo_device* device, const tavo_control* control, uint8_t* id,
                                         tavo_error* error);
/// Reads the program ID of the application, TAVO_PROGRAM_ID_SIZE bytes. As long as tavo_read_neuron_id.
TAVO_API tavo_result tavo_read_program_id(tavo_device* device, const tavo_control* control, uint8_t* id,
                                          tavo_error* error);

/// State and counters of the Neuron.
typedef struct tavo_neuron_status {
    uint32_t size;                       ///< of the record, set before the call
    uint32_t node_state;                 ///< 0x02 unconfigured, 0x04 configured, 0x06 hard offline (ISO/IEC 14908-1)
    uint32_t reset_cause;                ///< raw
    uint32_t error_log;                  ///< raw
    uint32_t version_number;             ///< of the firmware
    uint32_t model_number;               ///< of the chip
    uint32_t transmit_errors;            ///< this and the following: counted since the last reset
    uint32_t transaction_timeouts;       ///< transactions that ended without an answer
    uint32_t receive_transactions_full;  ///< messages dropped: no receive transaction was free
    uint32_t lost_messages;              ///< messages dropped: no application buffer was free
    uint32_t missed_messages;            ///< messages dropped: no network buffer was free
    uint32_t spare;                      ///< 0
    char node_state_name[48];            ///< "configured"; "unknown" for a code without a name
    char reset_cause_name[48];           ///< "power-up"
    char error_log_name[48];             ///< "no error"
} tavo_neuron_status;
/// As long as tavo_read_neuron_id.
TAVO_API tavo_result tavo_read_status(tavo_device* device, const tavo_control* control, tavo_neuron_status* status,
                                      tavo_error* error);

enum { TAVO_MODE_UNCONFIGURED = 0, TAVO_MODE_OFFLINE = 1, TAVO_MODE_CONFIGURED = 2, TAVO_MODE_SERVICE = 3 };
/// Node states around a change.
typedef struct tavo_mode_change {
    uint32_t size;   ///< of the record, set before the call
    int32_t before;  ///< node state; -1: the Neuron did not answer
    int32_t after;   ///< as it was read back
    uint32_t spare;  ///< 0
} tavo_mode_change;
/// Sets the node state by message (about 1 s), or by holding both lines (service: 13 s with the start of the Neuron),
/// and reads it before and after. A Neuron that answers and is in another state is TAVO_PROBLEM_DEVICE_FAILED.
TAVO_API tavo_result tavo_set_mode(tavo_device* device, uint32_t mode, const tavo_control* control,
                                   tavo_mode_change* change, tavo_error* error);

enum { TAVO_RESET_BY_LINE = 0, TAVO_RESET_BY_MESSAGE = 1 };
/// @param by       line: 25 ms low, then 1.5 s until the Neuron has booted. Message: waits for the network
///                 interface's notice, at most 65 s, then 1 s.
/// @param seconds  may be null; taken
TAVO_API tavo_result tavo_reset_neuron(tavo_device* device, uint32_t by, const tavo_control* control, double* seconds,
                                       tavo_error* error);
/// Presses the service pin for 25 ms. TAVO_PROBLEM_DEVICE_FAILED on a bridge without GPIO 14, and when the line
/// stays low.
TAVO_API tavo_result tavo_press_service_pin(tavo_device* device, const tavo_control* control, tavo_error* error);

/// An entry of the domain table (ISO/IEC 14908-1), as it travels.
typedef struct tavo_domain {
    uint8_t domain_id[6];           ///< its first bytes, as many as its length says
    uint8_t subnet;                 ///< 1 to 255; 0: none
    uint8_t node;                   ///< bits 0 to 6: node number; bit 7: a flag of the entry
    uint8_t domain_id_length;       ///< low bits: bytes of the domain ID; bit 7: a flag of the entry
    uint8_t authentication_key[6];  ///< 6 bytes
} tavo_domain;
/// Reads both entries. Blocks for at most about 2 s.
/// @param table  two of them
TAVO_API tavo_result tavo_read_domain_table(tavo_device* device, const tavo_control* control, tavo_domain* table,
                                            tavo_error* error);
/// What is kept of a domain table that is written over.
typedef struct tavo_domain_options {
    uint32_t size;       ///< of the record, set before the call
    uint32_t no_backup;  ///< 1: keeps no copy of what was there on this computer
    uint32_t keep_keys;  ///< 1: that copy has the authentication keys, too
    uint32_t spare;      ///< 0
} tavo_domain_options;
/// Keeps what is there, then writes both entries, 0 then 1; after a failure the table is read back. Blocks for at most
/// about 4 s.
/// @param before   the two that tavo_read_domain_table gave: what "unchanged" means; null: they are read first
/// @param wanted   two of them
/// @param changed  may be null; bit 0, bit 1: that entry differs from before now. Set also on failure.
TAVO_API tavo_result tavo_write_domain_table(tavo_device* device, const tavo_domain* before, const tavo_domain* wanted,
                                             const tavo_domain_options* options, const tavo_control* control,
                                             uint32_t* changed, tavo_error* error);

// --- Looking for what is wrong, and putting it right

enum { TAVO_VERDICT_OK = 0, TAVO_VERDICT_FAIL = 1, TAVO_VERDICT_SKIPPED = 2 };

/// One thing that was looked at or done.
typedef struct tavo_finding {
    uint32_t size;     ///< of the record, set before the call
    uint32_t verdict;  ///< TAVO_VERDICT_...
    char item[64];     ///< of tavo_doctor: "flash ID"; empty of tavo_recover
    char text[512];    ///< what was found or done
    char hint[512];    ///< of a failure: what to do about it (tavo_doctor), why it failed (tavo_recover)
} tavo_finding;

/// Findings in the order in which they were made. Free it with tavo_free_report.
typedef struct tavo_report tavo_report;
/// Gives a report back; null does nothing.
TAVO_API void tavo_free_report(tavo_report* report);
/// How many findings there are; 0 for null.
TAVO_API uint32_t tavo_finding_count(const tavo_report* report);
/// @param index  from 0
TAVO_API tavo_result tavo_report_finding(const tavo_report* report, uint32_t index, tavo_finding* finding,
                                         tavo_error* error);

/// What tavo_doctor and tavo_recover found.
typedef struct tavo_health {
    uint32_t size;            ///< of the record, set before the call
    uint32_t failed;          ///< findings that are failures
    tavo_device_state state;  ///< lines and SCB0 as they are; the flash, when a run was interrupted
} tavo_health;

/// How tavo_doctor looks.
typedef struct tavo_doctor_options {
    uint32_t size;                 ///< of the record, set before the call
    uint32_t keep_neuron_running;  ///< 1: leaves out the flash ID, for which the Neuron is restarted
} tavo_doctor_options;
/// Looks at everything from the access to the Neuron's answer, in that order; releases nothing that is held. What is
/// wrong is a finding, not a failure. Blocks for 1 to 5 s.
TAVO_API tavo_result tavo_doctor(tavo_device* device, const tavo_doctor_options* options, const tavo_control* control,
                                 tavo_health* health, tavo_report** report, tavo_error* error);

/// Puts an interface right that a killed run has left as it was: ends an SPI transfer that was cut off, gives SCB0
/// back, releases both lines, leaves the configuration mode, and proves it. The Neuron is restarted. Blocks for about
/// 3 s. Every step is tried whatever became of the others; it fails with the first that failed, and the report is
/// made then as well.
TAVO_API tavo_result tavo_recover(tavo_device* device, const tavo_control* control, tavo_health* health,
                                  tavo_report** report, tavo_error* error);

// --- What this computer remembers

/// A run that began to change a flash and was cut off: by a kill, a crash, a pulled plug.
typedef struct tavo_interrupted_run {
    uint32_t size;      ///< of the record, set before the call
    uint32_t found;     ///< 0: there is none, and the rest is empty
    uint32_t flash;     ///< TAVO_FLASH_...: what the flash holds after it
    uint32_t spare;     ///< 0
    char image[1024];   ///< path of the file that was being programmed; empty for an erase
    char sha256[72];    ///< identity of the image; may be empty
    char started[40];   ///< local time with its offset from UTC: "2024-05-01T14:03:59+0200"
    char backup[1024];  ///< path of what was in the flash before; empty without a backup
    char text[512];     ///< for people: what was going on, and what the flash holds now
    char hint[1024];    ///< what to do about it
} tavo_interrupted_run;
/// Looks whether one is remembered of this interface, which then has to be programmed anew. Asks only the files of
/// this computer, at once.
TAVO_API tavo_result tavo_find_interrupted_run(const tavo_device* device, tavo_interrupted_run* run, tavo_error* error);

/// What a backup is of.
enum { TAVO_BACKUP_FLASH = 0, TAVO_BACKUP_CONFIGURATION = 1, TAVO_BACKUP_DOMAINS = 2 };

/// What an interface held before a run changed it: a file that only its owner may read.
typedef struct tavo_backup {
    uint32_t size;            ///< of the record, set before the call
    uint32_t kind;            ///< TAVO_BACKUP_...
    uint64_t bytes;           ///< of the file
    uint32_t is_damaged;      ///< 1: the file is not what was kept
    uint32_t spare;           ///< 0
    char id[64];              ///< "20240501-140359-3fa4b2c1d0e5": local time when it was first kept, and sha256
    char time[40];            ///< when the interface held it last, UTC: "2024-05-01T12:03:59Z"
    char sha256[72];          ///< of the file; of an image also its identity
    char taken_before[1024];  ///< what the run did then: "program /images/new.hex"; may be empty
    char path[1024];          ///< of the file
} tavo_backup;

/// What is kept of one interface, the latest first.
typedef struct tavo_backup_list tavo_backup_list;
/// Reads every file that is kept. None is no failure. Free the list with tavo_free_backup_list.
TAVO_API tavo_result tavo_find_backups(const tavo_device* device, tavo_backup_list** list, tavo_error* error);
/// Gives a list back; null does nothing.
TAVO_API void tavo_free_backup_list(tavo_backup_list* list);
/// How many there are; 0 for null.
TAVO_API uint32_t tavo_backup_count(const tavo_backup_list* list);
/// @param index  from 0
TAVO_API tavo_result tavo_listed_backup(const tavo_backup_list* list, uint32_t index, tavo_backup* backup,
                                        tavo_error* error);

/// What is kept by a restore.
typedef struct tavo_restore_options {
    uint32_t size;       ///< of the record, set before the call
    uint32_t no_backup;  ///< 1: does not keep what is there now
} tavo_restore_options;
/// What a restore did: only what belongs to the backup's kind is filled.
typedef struct tavo_restore_result {
    uint32_t size;            ///< of the record, set before the call
    uint32_t changed;         ///< 0: all of it was there already, nothing was written
    tavo_device_state state;  ///< of the device, afterwards
    uint32_t way;             ///< TAVO_PROGRAM_...
    uint32_t pages_written;   ///< of the flash
    uint32_t retry_count;     ///< pages that needed another attempt
    uint32_t changed_bytes;   ///< of the configuration block
    uint32_t domains;         ///< bit 0, bit 1: that entry of the domain table was changed
    uint32_t kept_keys;       ///< bits: the key of that entry is not in the backup, the Neuron's own has stayed
    char backup[1024];        ///< file that keeps what was there before; empty: none
} tavo_restore_result;
/// Puts a backup back: an image as tavo_program_flash does, a block with its serial number (applies after a replug), a
/// domain table. Blocks as the operation that does it.
/// @param kind   TAVO_BACKUP_...
/// @param which  the beginning of an ID or of the sha256, or a file's name; null: the one that was made before the run
///               that has left the flash incomplete, else the latest
TAVO_API tavo_result tavo_restore(tavo_device* device, uint32_t kind, const char* which,
                                  const tavo_restore_options* options, const tavo_control* control,
                                  tavo_restore_result* result, tavo_error* error);

/// One run that changed an interface, or was to. Texts are empty where nothing is to be told.
typedef struct tavo_history_entry {
    uint32_t size;           ///< of the record, set before the call
    uint32_t spare;          ///< 0
    double seconds;          ///< that it took
    char time[40];           ///< of its begin, UTC: "2024-05-01T12:03:59Z"
    char action[32];         ///< "program", "erase", "restore", "config write", "set-serial", "scb0", "domain write"
    char part[16];           ///< what it works on: "flash", "config", "domain"
    char result[16];         ///< "done", "unchanged", "failed", "interrupted"; "started": it has not ended
    char tool[32];           ///< version of what did it
    char run[64];            ///< tells runs apart
    char neuron_id[16];      ///< of the interface
    char sha256[72];         ///< identity of what was written
    char serial[256];        ///< of the interface
    char serial_after[256];  ///< that a rewrite of the configuration block gave it
    char path[1024];         ///< of the interface
    char image[1024];        ///< path of the file that was written
    char backup[256];        ///< file name of what was there before, among the backups of the interface
    char state[512];         ///< words for what is known of the interface afterwards
    char error[1024];        ///< of a run that failed
} tavo_history_entry;

/// The runs that this computer remembers, oldest first.
typedef struct tavo_history tavo_history;
/// Reads the log of this user and of root, as far as this user may read it.
/// @param spec  only what was done to this interface, which need not be attached (see tavo_find_devices); null: all
/// Free it with tavo_free_history.
TAVO_API tavo_result tavo_read_history(const char* spec, tavo_history** history, tavo_error* error);
/// Gives a history back; null does nothing.
TAVO_API void tavo_free_history(tavo_history* history);
/// How many entries there are; 0 for null.
TAVO_API uint32_t tavo_entry_count(const tavo_history* history);
/// @param index  from 0
TAVO_API tavo_result tavo_listed_entry(const tavo_history* history, uint32_t index, tavo_history_entry* entry,
                                       tavo_error* error);
/// Lines and files of the log that could not be read, for people: lines ended by line feeds.
/// @param needed  bytes of all of it with its zero, also when they do not fit; the buffer is filled when they do. May
///                be null.
TAVO_API tavo_result tavo_history_faults(const tavo_history* history, char* buffer, uint32_t capacity, uint32_t* needed,
                                         tavo_error* error);

#ifdef __cplusplus
}
#endif
