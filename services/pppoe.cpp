#include "services/pppoe.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

#include "core/exec.h"
#include "core/log.h"
#include "core/netif.h"
#include "core/process.h"
#include "core/text.h"

using tessel::CommandLine;
using tessel::ComposeCommand;
using tessel::FieldText;

TDaePppoeInfo* g_ptDaePppoeInfo = nullptr;

namespace {

// The line that dials goes through the shell, and the text after "pty" through a second one, pppd's own.
constexpr char kPty[] = "pppd pty \"pppoe -I %s -T 80 -U  -m 1412\" ";
constexpr char kPtyOfService[] = "pppd pty \" pppoe -I %s -S %s -T 80 -U  -m 1412 \" ";
constexpr char kOptions[] =
    "noipdefault tessel_pppoe noauth default-asyncmap hide-password nodetach  mtu 1492 mru 1492 noaccomp nodeflate "
    "nopcomp novj novjccomp defaultroute usepeerdns ";
constexpr char kKill[] = "kill kill -9 %d";

constexpr char kScriptsFile[] = "/tmp/pppd.txt";

// What a pppd of the family has at the end of its line. Null for another family.
const char* FamilyWord(u16 family) {
    switch (family) {
        case TESSEL_FAMILY_INET:
            return "noipv6";
        case TESSEL_FAMILY_INET6:
            return "noip +ipv6";
        case TESSEL_FAMILY_BOTH:
            return "+ipv6";
        default:
            return nullptr;
    }
}

// True for a text that means itself to every shell and that no tool takes for an option.
bool IsPlain(const char* text) {
    const auto isPlain = [](char c) {
        return isalnum(static_cast<unsigned char>(c)) != 0 || strchr("._@%+=:,/-", c) != nullptr;
    };
    return text[0] != '-' && std::all_of(text, text + strlen(text), isPlain);
}

bool HasControlCharacter(const char* text) {
    return std::any_of(text, text + strlen(text), [](char c) { return static_cast<u8>(c) < ' ' || c == '\x7f'; });
}

using ConfText = FieldText<sizeof(TNetPppoeConf::achUser)>;

// A text as one word of a shell's line that stands for exactly these characters.
class ShellWord {
  public:
    explicit ShellWord(const ConfText& text) {
        if (IsPlain(text.Get())) {
            memcpy(text_, text.Get(), strlen(text.Get()));
            return;
        }
        char* end = text_;
        *end++ = '\'';
        for (const char* c = text.Get(); *c != '\0'; ++c) {
            if (*c == '\'') {
                end = stpcpy(end, kQuote);
            } else {
                *end++ = *c;
            }
        }
        *end = '\'';
    }
    [[nodiscard]] const char* Get() const {
        return text_;
    }

  private:
    static constexpr char kQuote[] = "'\\''";  // ends the quoted text, adds a quote and begins it again
    char text_[sizeof(TNetPppoeConf::achUser) * (sizeof(kQuote) - 1) + sizeof("''")] = {};
};

// Fills a line bit by bit. What no longer fits makes it too long, and nothing is added after that.
class GrowingLine {
  public:
    explicit GrowingLine(char (&text)[tessel::kCommandLineBytes]) : text_(text) {}
    [[gnu::format(printf, 2, 3)]] void Add(const char* format, ...) {
        if (isTooLong_) return;
        va_list arguments;
        va_start(arguments, format);
        const std::size_t room = sizeof(text_) - length_;
        const int added = vsnprintf(text_ + length_, room, format, arguments);
        va_end(arguments);
        isTooLong_ = added < 0 || static_cast<std::size_t>(added) >= room;
        if (!isTooLong_) length_ += static_cast<std::size_t>(added);
    }
    void AddUnlessZero(const char* option, u32 number) {
        if (number != 0) Add("%s %d ", option, static_cast<i32>(number));
    }
    void AddUnlessEmpty(const char* option, const ConfText& text) {
        if (!text.IsEmpty()) Add("%s %s ", option, ShellWord(text).Get());
    }
    [[nodiscard]] bool IsTooLong() const {
        return isTooLong_;
    }

  private:
    char (&text_)[tessel::kCommandLineBytes];
    std::size_t length_ = 0;
    bool isTooLong_ = false;
};

// The texts of a configuration.
struct Texts {
    explicit Texts(const TNetPppoeConf& conf)
        : user(conf.achUser), password(conf.achPassword), service(conf.achService), interfaceName(conf.achDevName) {}

    // Which of them cannot be passed on; null when all can. Interface and service are read by two shells.
    [[nodiscard]] const char* FindUnusable() const {
        if (HasControlCharacter(user.Get())) return "user";
        if (HasControlCharacter(password.Get())) return "password";
        if (!IsPlain(service.Get())) return "service";
        const bool isInterface = IsPlain(interfaceName.Get()) && tessel::CanNameInterface(interfaceName.Get());
        return isInterface ? nullptr : "interface";
    }

    ConfText user;
    ConfText password;
    ConfText service;
    FieldText<TESSEL_NAME_SIZE> interfaceName;
};

void AddLink(GrowingLine& line, u16 family, const TNetPppoeConf& conf, const Texts& texts) {
    if (texts.service.IsEmpty()) {
        line.Add(kPty, texts.interfaceName.Get());
    } else {
        line.Add(kPtyOfService, texts.interfaceName.Get(), texts.service.Get());
    }
    line.Add("%s", kOptions);
    line.Add("maxfail %d ", static_cast<i32>(conf.dwMaxfail));
    line.AddUnlessZero("holdoff", conf.dwHoldoff);
    if (conf.dwPersist != 0) line.Add("persist ");
    if (conf.dwDebug != 0) line.Add("debug ");
    line.AddUnlessZero("lcp-echo-interval", conf.dwLcpEchoInterval);
    line.AddUnlessZero("lcp-echo-failure", conf.dwLcpEchoFailure);
    line.AddUnlessEmpty("user", texts.user);
    line.AddUnlessEmpty("password", texts.password);
    if (const char* const word = FamilyWord(family)) line.Add("%s", word);
}

// The shell that started it has the word too, so what contains "sh" is left out at first. If nothing is left, as with a
// user called "josh", the program's name decides.
pid_t FindPppd(const char* word) {
    const pid_t pid = GetServicePidFromCmdline2("/proc/", word, nullptr, "sh");
    return pid > 0 ? pid : tessel::FindProgram("pppd", word);
}

}  // namespace

void DaemonPppoeInit() {
    TDaePppoeInfo** link = &g_ptDaePppoeInfo;
    for (const u16 family : {TESSEL_FAMILY_INET, TESSEL_FAMILY_INET6}) {
        *link = new (std::nothrow) TDaePppoeInfo{.next = nullptr, .wSinFamily = family};
        if (*link == nullptr) {
            TESSEL_PERROR("XMALLOC error");
            return;
        }
        link = &(*link)->next;
    }
}

namespace tessel {

bool ComposePppoe(CommandLine& line, u16 wSinFamily, const TNetPppoeConf& conf) {
    const Texts texts(conf);
    if (const char* const unusable = texts.FindUnusable()) {
        TESSEL_ERR_AT(line.where, "the pppoe %s is invalid!", unusable);  // not what it is: it may be a password
        return false;
    }
    GrowingLine growing(line.text);
    AddLink(growing, wSinFamily, conf, texts);
    if (!growing.IsTooLong()) return true;
    TESSEL_ERR_AT(line.where, "the cmd is too long!");
    TESSEL_ERR_AT(line.where, "%s", line.text);
    return false;
}

}  // namespace tessel

i32 PppoeClientStart(u16 wSinFamily, const TNetPppoeConf& conf) {
    CommandLine line;
    if (!tessel::ComposePppoe(line, wSinFamily, conf)) return -1;
    TESSEL_PRT("PppoeClientStart cmd: [%s]", line.text);
    (void)unlink(kScriptsFile);  // what an earlier link's scripts may have left there
    return tessel::StartDetachedShell(line.text);
}

i32 PppoeClientStop(u16 wSinFamily) {
    const char* const word = FamilyWord(wSinFamily);
    if (word == nullptr) {
        TESSEL_ERR("PppoeClientStop wSinFamily %d is invalid!", wSinFamily);
        return -1;
    }
    const pid_t pid = FindPppd(word);
    if (pid <= 0) {
        TESSEL_PERROR("pppoe already stop.");
        return 0;
    }
    CommandLine command;
    if (!ComposeCommand(command, kKill, pid)) return -1;
    TESSEL_PRT("PppoeClientStop cmd %s", strchr(command.text, ' ') + 1);
    const i32 status = RunForStatus(command);
    // Still answered with 0: clients rely on it.
    if (status != 0) TESSEL_ERR("the child process error:ret=%d!", status);
    return 0;
}
