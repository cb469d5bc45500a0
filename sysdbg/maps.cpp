#include "sysdbg/maps.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <span>

#include "sysdbg/file.h"
#include "sysdbg/sysdbg.h"

namespace sysdbg {

namespace {

constexpr std::size_t kMaxEntries = 4096;
constexpr std::size_t kLineBytes = 512;

struct MapTable {
    MapEntry entries[kMaxEntries];
    std::size_t count;
};
// Takes no memory until a crash fills it.
MapTable mapTable;

// Reads a line part by part.
class LineReader {
  public:
    explicit LineReader(const char* line) : next_(line), end_(line + strlen(line)) {}

    template <typename Number>
    bool Read(Number& number, int base) {
        const auto [parsed, error] = std::from_chars(next_, end_, number, base);
        if (error != std::errc()) return false;
        next_ = parsed;
        return true;
    }
    bool Skip(char separator) {
        if (next_ == end_ || *next_ != separator) return false;
        while (next_ != end_ && *next_ == separator)
            ++next_;
        return true;
    }
    // Up to the next blank, cut to fit.
    template <std::size_t N>
    bool ReadWord(char (&word)[N]) {
        const char* end = std::find_if(next_, end_, [](char c) { return c == ' ' || c == '\n'; });
        const auto length = std::min(static_cast<std::size_t>(end - next_), N - 1);
        memcpy(word, next_, length);
        word[length] = '\0';
        next_ = end;
        return length > 0;
    }

  private:
    const char* next_;
    const char* end_;
};

// Passes each line of a file, cut to fit, to `use` until that returns false.
template <typename Use>
void ForEachLine(const File& file, Use use) {
    char line[kLineBytes];
    std::size_t length = 0;
    char piece[kLineBytes];
    while (const std::size_t count = file.Read(piece, sizeof(piece))) {
        for (const char character : std::span(piece, count)) {
            if (character != '\n') {
                if (length < sizeof(line) - 1) line[length++] = character;
                continue;
            }
            line[length] = '\0';
            length = 0;
            if (!use(line)) return;
        }
    }
}

}  // namespace

bool ParseMapLine(const char* line, MapEntry& entry) {
    entry = {};
    LineReader reader(line);
    const bool isEntry = reader.Read(entry.start, 16) && reader.Skip('-') && reader.Read(entry.end, 16) &&
                         reader.Skip(' ') && reader.ReadWord(entry.permissions) && reader.Skip(' ') &&
                         reader.Read(entry.offset, 16) && reader.Skip(' ') && reader.ReadWord(entry.device) &&
                         reader.Skip(' ') && reader.Read(entry.inode, 10);
    if (isEntry && reader.Skip(' ')) (void)reader.ReadWord(entry.path);  // anonymous memory has none
    return isEntry;
}

void LoadMaps(pid_t thread) {
    mapTable.count = 0;
    ForEachLine(OpenTaskFile(thread, "maps"), [](const char* line) {
        if (ParseMapLine(line, mapTable.entries[mapTable.count])) ++mapTable.count;
        return mapTable.count < kMaxEntries;
    });
}

const MapEntry* FindMapEntry(std::uintptr_t address) {
    const std::span entries(mapTable.entries, mapTable.count);
    const auto found = std::find_if(entries.begin(), entries.end(), [address](const MapEntry& entry) {
        return address >= entry.start && address < entry.end;
    });
    return found != entries.end() ? &*found : nullptr;
}

bool IsCode(std::uintptr_t address) {
    const MapEntry* entry = FindMapEntry(address);
    return entry != nullptr && strchr(entry->permissions, 'x') != nullptr;
}

void WriteMaps(pid_t thread) {
    const File file = OpenTaskFile(thread, "maps");
    char piece[256];
    while (const std::size_t count = file.Read(piece, sizeof(piece) - 1)) {
        piece[count] = '\0';
        SysdbgReport("%s", piece);
    }
}

}  // namespace sysdbg
