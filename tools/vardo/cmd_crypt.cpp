// vardo crypt encrypt|decrypt IN OUT [--pass-file FILE]: encrypts or decrypts a whole file
// in the library's encrypted-buffer format (SCrypt), with the key made from a pass phrase.
// The pass phrase is the first line of FILE, or of standard input without --pass-file;
// never a command-line word, so it stays out of process listings and shell history.
// Exit codes: 0 done, 1 the operation failed (the status text on stderr), 2 usage,
// 3 a file could not be read or written.
#include "command.h"

#include "vardo/scrypt.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

using namespace Vardo400;

namespace {

const char kUsage[] =
    "usage: vardo crypt encrypt|decrypt IN OUT [--pass-file FILE]\n"
    "  The pass phrase is the first line of FILE, or of standard input without --pass-file.\n";

// Overwrites a secret before its memory is given back.
void wipe(std::string& s)
{
    volatile char* p = s.empty() ? nullptr : &s[0];
    for (size_t i = 0; i < s.size(); ++i)
        p[i] = 0;
    s.clear();
}

void wipe(std::vector<unsigned char>& b)
{
    volatile unsigned char* p = b.data();
    for (size_t i = 0; i < b.size(); ++i)
        p[i] = 0;
    b.clear();
}

void wipe(SSimpleBuffer& b)
{
    volatile unsigned char* p = b.data();
    for (size_t i = 0; i < b.size(); ++i)
        p[i] = 0;
    b.clear();
}

bool readFile(const std::string& path, std::vector<unsigned char>& out)
{
    std::ifstream f(std::filesystem::u8path(path), std::ios::binary);
    if (!f)
        return false;
    out.assign(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
    return !f.bad();
}

bool writeFile(const std::string& path, const unsigned char* p, size_t n)
{
    std::ofstream f(std::filesystem::u8path(path), std::ios::binary | std::ios::trunc);
    if (!f)
        return false;
    f.write(reinterpret_cast<const char*>(p), static_cast<std::streamsize>(n));
    f.close();
    return !f.fail();
}

// The first line, without its line end.
bool readPassPhrase(std::istream& in, std::string& pass)
{
    if (!std::getline(in, pass) && pass.empty())
        return false;
    while (!pass.empty() && (pass.back() == '\r' || pass.back() == '\n'))
        pass.pop_back();
    return true;
}

int fail(SCrypt::Status st)
{
    std::fprintf(stderr, "vardo crypt: %s\n", StrongEncryptionException::ReasonText(st));
    return 1;
}

int runCrypt(const std::vector<std::string>& args)
{
    std::vector<std::string> words;
    std::string passFile;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--help" || args[i] == "-h") {
            std::fputs(kUsage, stdout);
            return 0;
        }
        if (args[i] == "--pass-file" && i + 1 < args.size()) {
            passFile = args[++i];
        } else if (args[i].compare(0, 2, "--") == 0) {
            std::fputs(kUsage, stderr);
            return 2;
        } else {
            words.push_back(args[i]);
        }
    }
    if (words.size() != 3 || (words[0] != "encrypt" && words[0] != "decrypt")) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    const bool encrypting = words[0] == "encrypt";

    std::string pass;
    bool havePass;
    if (passFile.empty()) {
        havePass = readPassPhrase(std::cin, pass);
    } else {
        std::ifstream pf(std::filesystem::u8path(passFile), std::ios::binary);
        if (!pf) {
            std::fprintf(stderr, "vardo crypt: cannot read the pass-phrase file %s\n", passFile.c_str());
            return 3;
        }
        havePass = readPassPhrase(pf, pass);
    }
    if (!havePass || pass.empty()) {
        std::fputs("vardo crypt: no pass phrase given (first line of --pass-file FILE or of standard input)\n", stderr);
        return 2;
    }

    SCrypt crypt;
    SCrypt::Key key;
    SCrypt::Status st = crypt.makeKey(vardo_tool::argToText(pass), key);
    wipe(pass);
    if (st != SCrypt::success)
        return fail(st);

    std::vector<unsigned char> in;
    if (!readFile(words[1], in)) {
        std::fprintf(stderr, "vardo crypt: cannot read %s\n", words[1].c_str());
        return 3;
    }
    SSimpleBuffer source(in.data(), in.size()), result;
    wipe(in);
    st = encrypting ? crypt.encrypt(source, key, result) : crypt.decrypt(source, key, result);
    wipe(source);
    if (st != SCrypt::success)
        return fail(st);
    bool written = writeFile(words[2], result.data(), result.size());
    wipe(result);
    if (!written) {
        std::fprintf(stderr, "vardo crypt: cannot write %s\n", words[2].c_str());
        return 3;
    }
    return 0;
}

} // namespace

VARDO_TOOL_COMMAND(crypt, "crypt",
                   "crypt encrypt|decrypt IN OUT [--pass-file FILE]   encrypts or decrypts a file (pass phrase from FILE or stdin)",
                   runCrypt);
