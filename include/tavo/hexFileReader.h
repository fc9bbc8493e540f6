// Intel HEX reader: decodes records and assembles flash pages.
#pragma once

#include <deque>
#include <vector>

#include "tavo/export.h"

/// Turns the lines of one Intel HEX file into flash pages that never cross a multiple of 256.
///
/// For each line: ParseRecord; then, while isPageReady: FetchAddress, FetchPage. One object serves
/// one file and one thread; after an exception it may only be destroyed. Fields are found by their
/// position and read with the meaning of strtoul; the start code is not examined, and the line's
/// length is not compared with the byte count. The checksum is that of the whole line: one more
/// character behind it, a carriage return, makes it wrong unless it is 00.
class IntelHexParser {
public:
    /// @param pageSize  largest number of bytes in a page; 256 for the flash. Not validated.
    TAVO_API explicit IntelHexParser(int pageSize);
    TAVO_API ~IntelHexParser();
    IntelHexParser(const IntelHexParser&) = delete;
    IntelHexParser& operator=(const IntelHexParser&) = delete;

    /// Checks and applies one record.
    /// @param line  NUL-terminated text of one line without its line feed; borrowed for the call.
    /// @throws std::runtime_error  wrong checksum, no digits in a field, type other than 00, 01, 04
    /// @throws std::out_of_range   a field begins beyond the end of the line
    /// @throws std::logic_error    line is null
    TAVO_API void ParseRecord(const char* line);
    /// True when FetchAddress and FetchPage may be called.
    TAVO_API bool isPageReady();
    /// Flash address of the page that the next FetchPage returns.
    TAVO_API unsigned int FetchAddress();
    /// Removes and returns the next page; may be empty after the end-of-file record.
    TAVO_API std::vector<unsigned char> FetchPage();

    // The steps of ParseRecord.
    /// @throws std::runtime_error  it is wrong
    TAVO_API void CheckChecksum(const char* line);
    /// The byte count of a record.
    TAVO_API unsigned char RecordLength(const char* line);
    /// The 16 address bits of a record.
    TAVO_API unsigned int RecordAddress(const char* line);
    /// The type of a record.
    TAVO_API unsigned int RecordType(const char* line);
    /// The checksum that a record has.
    TAVO_API unsigned char RecordChecksum(const char* line);
    /// The data bytes of a record.
    TAVO_API std::vector<unsigned char> RecordData(const char* line);
    /// The checksum that a record should have.
    TAVO_API unsigned char CalculateRecordChecksum(const char* line, unsigned long length);
    /// Of the lowest byte.
    TAVO_API unsigned int GetTwosComplement(unsigned int value);
    /// The number that count digits at position make.
    TAVO_API unsigned long GetHexCharacterAsLong(const char* line, int position, int count);
    /// Takes the upper address half of a record of type 04.
    TAVO_API void HandleExtendedSegmentAddressType(const char* line);
    /// Takes the bytes of a record of type 00.
    TAVO_API void HandleDataType(const char* line);
    /// Ends the last page.
    TAVO_API void HandleEndOfFileType(const char* line);

    // The steps of page assembly.
    /// Appends the bytes of the line.
    TAVO_API void PushLineDataToDataQueue();
    /// True when the line does not go on where the one before ended.
    TAVO_API bool isGap();
    /// True when the line begins in another page.
    TAVO_API bool isNewPage();
    /// Begins a page there.
    TAVO_API void savePageAddress(unsigned int address);
    /// Sets pageReady.
    TAVO_API void DataReadyToFetch(bool ready);

    int pageSize;                          ///< largest number of bytes in a page
    unsigned int pageAddress = 0;          ///< flash address of the first byte in dataQueue
    unsigned int lineAddress = 0;          ///< full address of the data record handled last
    unsigned int previousLineAddress = 0;  ///< full address of the one before, for the gap test
    unsigned int previousLineLength = 0;   ///< its byte count
    unsigned short extendedAddress = 0;    ///< upper 16 address bits, from the last type 04 record
    bool pageReady = false;                ///< the page can be fetched
    std::vector<unsigned char> lineData;   ///< a record held back at a gap until the run before it is fetched
    bool firstLine = true;                 ///< no data record yet: no gap
    std::deque<unsigned char> dataQueue;   ///< decoded, not yet fetched; consecutive from pageAddress

private:
    bool runClosed = false;  ///< no more bytes follow the queued ones: fetched to the last, full page or not

    void parseByFields(const char* line);
    void queueLine(unsigned int length);
    bool holdsPage() const;
};
