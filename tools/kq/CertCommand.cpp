#include "tools/kq/CertCommand.h"

#include "common/SettingsTransportSet.h"
#include "net/ssl/NetSSLCertControl.h"
#include "net/ssl/NetSSLCertCreate.h"
#include "tools/kq/CertFacts.h"
#include "tools/kq/MessageTexts.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <system_error>
#include <vector>

namespace kq {

using namespace kqlib;

namespace {

constexpr int EXIT_DONE = 0;
constexpr int EXIT_REFUSED = 1;
constexpr int EXIT_NO_FILE = 2;

constexpr unsigned MAX_DAYS = 24855; // more does not fit the seconds of a certificate made here
constexpr unsigned MIN_BITS = 512;
constexpr unsigned MAX_BITS = 16384;
constexpr ULONG SEED_BYTES = 512;

/// One text of the settings: its key in a file, its option and its place in the object.
struct TEXT
{
    const char* key;
    const char* option;
    const char* help;
    void (NetSSLCertCreate::*set)(const String&);
};

constexpr std::array<TEXT, 8> TEXTS{{
    {"name", "--name", "Name of the files, without extension", &NetSSLCertCreate::SetName},
    {"commonname", "--common-name", "Common name: the host name of the server", &NetSSLCertCreate::SetCommonName},
    {"unit", "--unit", "Organisational unit", &NetSSLCertCreate::SetUnit},
    {"organization", "--organization", "Organisation", &NetSSLCertCreate::SetOrganization},
    {"email", "--email", "Contact address", &NetSSLCertCreate::SetEmail},
    {"city", "--city", "City", &NetSSLCertCreate::SetCity},
    {"state", "--state", "State or province", &NetSSLCertCreate::SetState},
    {"country", "--country", "Two-letter country code", &NetSSLCertCreate::SetCountry},
}};

struct OPTIONS
{
    std::string settings;
    std::array<std::string, TEXTS.size()> texts;
    unsigned days = 0; ///< 0: not given
    unsigned bits = 0; ///< 0: not given
    std::string out = ".";
    bool force = false;
    std::string name; ///< of imported files
    std::string cert;
    std::string key;
};

int Fail(const std::string& text)
{
    std::fprintf(stderr, "kq: %s\n", text.c_str());
    return EXIT_NO_FILE;
}

int PrintMessages(const Messages& msgs)
{
    for (ULONG i = 0; i < msgs.GetMessageCount(); ++i)
        std::printf("message %d: %s\n", msgs.Get(i), MessageText(msgs.Get(i)).c_str());
    return EXIT_REFUSED;
}

void SetDays(NetSSLCertCreate& create, unsigned days)
{
    TimePos expire = TimePos::sNow();
    expire.OffsetByDays(days);
    // The whole days are counted again when the settings are checked, a moment from now.
    expire.OffsetByMilliSeconds(60000);
    create.SetExpire(expire);
}

/// The number under a key, when it is there. False: it is not a whole number of that range.
bool ReadNumber(const nlohmann::json& object, const char* key, unsigned min, unsigned max, unsigned& out)
{
    const auto found = object.find(key);
    if (found == object.end())
        return true;
    if (!found->is_number_unsigned() || *found < min || *found > max)
        return false;
    out = found->get<unsigned>();
    return true;
}

/// Settings as a person writes them: one object with the keys of TEXTS, "days" and "bits". error: what is wrong.
bool ReadPlainSettings(const std::string& path, NetSSLCertCreate& create, std::string& error)
{
    std::ifstream file(path, std::ios::binary);
    const nlohmann::json object = nlohmann::json::parse(file, nullptr, false);
    if (!object.is_object()) {
        error = "no JSON object in it";
        return false;
    }
    for (const auto& [key, value] : object.items()) {
        const auto* const text =
            std::find_if(TEXTS.begin(), TEXTS.end(), [&key = key](const TEXT& each) { return key == each.key; });
        if (text != TEXTS.end() && value.is_string())
            (create.*text->set)(String(value.get<std::string>()));
        else if (key != "days" && key != "bits") {
            error = "\"" + key + "\" is " + (text != TEXTS.end() ? "not a text" : "unknown");
            return false;
        }
    }
    unsigned days = 0;
    unsigned bits = static_cast<unsigned>(create.GetBits());
    if (!ReadNumber(object, "days", 0, MAX_DAYS, days) || !ReadNumber(object, "bits", MIN_BITS, MAX_BITS, bits)) {
        error = "\"days\" or \"bits\" is no whole number that fits";
        return false;
    }
    if (object.contains("days"))
        SetDays(create, days);
    create.SetBits(bits);
    return true;
}

/// Settings of the file, if there is one, with the options over them. Random data is added when there is none.
bool ReadSettings(const OPTIONS& options, NetSSLCertCreate& create)
{
    std::string error;
    SettingsTransportSet set;
    if (!options.settings.empty()) {
        // What the library saved is taken as well as what a person wrote.
        const bool read = set.LoadFromFile(FilePath(options.settings.c_str()))
                              ? create.ReadFrom(set)
                              : ReadPlainSettings(options.settings, create, error);
        if (!read) {
            Fail(Printable(String(options.settings + ": " + error)));
            return false;
        }
    }
    for (std::size_t i = 0; i < TEXTS.size(); ++i)
        if (!options.texts[i].empty())
            (create.*TEXTS[i].set)(String(options.texts[i]));
    if (options.days != 0)
        SetDays(create, options.days);
    if (options.bits != 0)
        create.SetBits(options.bits);
    const bool needsSeed = create.GetSeed().GetSize() == 0;
    std::random_device random;
    while (needsSeed && create.GetSeed().GetSize() < SEED_BYTES) {
        const auto value = random();
        create.GetSeed().Append(&value, sizeof value);
    }
    return true;
}

void PrintFacts(const CERTFACTS& facts)
{
    for (const auto& [label, text] : facts)
        std::printf("%-12s %s\n", (label + ":").c_str(), text.c_str());
}

int RunShow(const OPTIONS& options)
{
    CERTFACTS facts;
    if (!ReadCertFacts(options.cert, facts))
        return Fail(Printable(String(options.cert)) + ": no certificate or signing request can be read");
    PrintFacts(facts);
    return EXIT_DONE;
}

/// A set of files to write: all called alike, in one folder.
struct TARGETS
{
    std::string cert;
    std::string request;
    std::string key;
};

TARGETS MakeTargets(const std::string& folder, const std::string& name)
{
    const std::string stem = (std::filesystem::path(folder) / name).string();
    return {stem + NetSSLCertControl::sExtCertificate().c_str(), stem + NetSSLCertControl::sExtSigningRequest().c_str(),
            stem + NetSSLCertControl::sExtPrivateKey().c_str()};
}

/// True when nothing is in the way: a key that is overwritten is lost.
bool IsFree(const std::vector<std::string>& paths, bool force)
{
    for (const std::string& path : paths) {
        std::error_code ignored;
        if (force || !std::filesystem::exists(path, ignored))
            continue;
        Fail(Printable(String(path)) + " exists; --force overwrites it");
        return false;
    }
    return true;
}

void PrintWritten(const char* what, const std::string& path)
{
    std::printf("wrote %s: %s\n", what, Printable(String(path)).c_str());
}

int RunCreate(const OPTIONS& options)
{
    NetSSLCertCreate create;
    if (!ReadSettings(options, create))
        return EXIT_NO_FILE;
    Messages msgs;
    if (!create.CheckErrors(msgs))
        return PrintMessages(msgs);
    const TARGETS targets = MakeTargets(options.out, create.GetName().str());
    if (!IsFree({targets.key, targets.cert, targets.request}, options.force))
        return EXIT_NO_FILE;
    NetSSLCertControl::sSeed(create.GetSeed().GetData(), create.GetSeed().GetSize());
    if (!NetSSLCertControl().CreateKeyCertificateAndSigningRequest(create, FilePath(targets.cert.c_str()),
                                                                   FilePath(targets.request.c_str()),
                                                                   FilePath(targets.key.c_str()), msgs))
        return PrintMessages(msgs);
    PrintWritten("private key", targets.key);
    PrintWritten("signing request", targets.request);
    PrintWritten("certificate", targets.cert);
    CERTFACTS facts;
    if (ReadCertFacts(targets.cert, facts))
        PrintFacts(facts);
    return EXIT_DONE;
}

int RunImport(const OPTIONS& options)
{
    const TARGETS targets = MakeTargets(options.out, options.name);
    if (!IsFree({targets.key, targets.cert}, options.force))
        return EXIT_NO_FILE;
    Messages msgs;
    if (!NetSSLCertControl().ImportKeyAndCertificate(FilePath(options.cert.c_str()), FilePath(options.key.c_str()),
                                                     FilePath(targets.cert.c_str()), FilePath(targets.key.c_str()),
                                                     msgs))
        return PrintMessages(msgs);
    PrintWritten("certificate", targets.cert);
    PrintWritten("private key", targets.key);
    return EXIT_DONE;
}

/// A pair of files when they are named, else settings.
int RunCheck(const OPTIONS& options)
{
    Messages msgs;
    if (!options.cert.empty()) {
        if (!NetSSLCertControl().CheckKeyAndCertificate(FilePath(options.cert.c_str()), FilePath(options.key.c_str()),
                                                        msgs))
            return PrintMessages(msgs);
        std::printf("the certificate and the private key belong together\n");
        return EXIT_DONE;
    }
    NetSSLCertCreate create;
    if (!ReadSettings(options, create))
        return EXIT_NO_FILE;
    if (!create.CheckErrors(msgs))
        return PrintMessages(msgs);
    std::printf("the settings are fine\n");
    return EXIT_DONE;
}

void AddSettingsOptions(CLI::App& command, OPTIONS& options)
{
    command.add_option("--settings", options.settings, "JSON file of settings; options are taken over it");
    for (std::size_t i = 0; i < TEXTS.size(); ++i)
        command.add_option(TEXTS[i].option, options.texts[i], TEXTS[i].help);
    command.add_option("--days", options.days, "Days of validity (default: 730)")->check(CLI::Range(1U, MAX_DAYS));
    command.add_option("--bits", options.bits, "Size of the RSA key (default: 2048)")
        ->check(CLI::Range(MIN_BITS, MAX_BITS));
}

void AddTargetOptions(CLI::App& command, OPTIONS& options)
{
    command.add_option("--out", options.out, "Folder for the files (default: the current one)");
    command.add_flag("--force", options.force, "Overwrite files");
}

} // namespace

void AddCertCommand(CLI::App& app, int& exitCode)
{
    CLI::App* const cert = app.add_subcommand("cert", "Makes, shows, imports and checks certificates");
    cert->require_subcommand(1);
    const auto options = std::make_shared<OPTIONS>();

    CLI::App* const create = cert->add_subcommand("create", "Makes a key, a self-signed certificate and a request");
    AddSettingsOptions(*create, *options);
    AddTargetOptions(*create, *options);
    create->callback([options, &exitCode] { exitCode = RunCreate(*options); });

    CLI::App* const show = cert->add_subcommand("show", "Shows a certificate or a signing request");
    show->add_option("file", options->cert, "PEM file")->required();
    show->callback([options, &exitCode] { exitCode = RunShow(*options); });

    CLI::App* const import = cert->add_subcommand("import", "Checks a pair of files and writes it anew");
    import->add_option("cert", options->cert, "PEM file of the certificate")->required();
    import->add_option("key", options->key, "PEM file of its key, without pass phrase")->required();
    import->add_option("--name", options->name, "Name of the files, without extension")->required();
    AddTargetOptions(*import, *options);
    import->callback([options, &exitCode] { exitCode = RunImport(*options);
});

CLI::App* const check = cert->add_subcommand("check", "Checks a pair of files, or settings; writes nothing");
CLI::Option* const certFile = check->add_option("cert", options->cert, "PEM file of the certificate");
CLI::Option* const keyFile = check->add_option("key", options->key, "PEM file of its key");
certFile->needs(keyFile);
AddSettingsOptions(*check, *options);
check->callback([options, &exitCode] { exitCode = RunCheck(*options); });
} // namespace kq

} // namespace kq
