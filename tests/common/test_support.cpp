#include "test_support.h"

#include "qzk_file_dbf.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace qz_test {

Temp_dir::Temp_dir() {
    const char* base = std::getenv("TMPDIR");
    std::string tmpl = std::string(base && *base ? base : "/tmp") + "/qzdbf-test-XXXXXX";
    char* made = ::mkdtemp(tmpl.data());
    path_ = made ? made : "";
}

Temp_dir::~Temp_dir() {
    std::error_code ec;
    if (!path_.empty()) std::filesystem::remove_all(path_, ec);
}

std::vector<uint8_t> read_bytes(const std::string& path) {
    // In blocks: byte by byte through stream iterators takes seconds for the
    // larger sample tables in a build without optimisation.
    std::ifstream in(path, std::ios::binary);
    std::vector<uint8_t> bytes;
    char block[1 << 16];
    while (in.read(block, sizeof block) || in.gcount() > 0)
        bytes.insert(bytes.end(), block, block + in.gcount());
    return bytes;
}

void write_bytes(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}

bool exists(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0;
}

std::wstring widen(const std::string& utf8) {
    // Test paths are ASCII or UTF-8; decode UTF-8 by hand to stay independent
    // of the library under test.
    std::wstring w;
    for (size_t i = 0; i < utf8.size();) {
        unsigned char c = static_cast<unsigned char>(utf8[i]);
        int n = c < 0x80 ? 1 : c < 0xE0 ? 2 : c < 0xF0 ? 3 : 4;
        uint32_t cp = n == 1 ? c : c & (0xFF >> (n + 1));
        for (int k = 1; k < n && i + k < utf8.size(); ++k)
            cp = (cp << 6) | (static_cast<unsigned char>(utf8[i + k]) & 0x3F);
        w += static_cast<wchar_t>(cp);
        i += static_cast<size_t>(n);
    }
    return w;
}

int run(const std::string& command, std::string* out) {
    FILE* p = ::popen(command.c_str(), "r");
    if (!p) return -1;
    std::string text;
    char buf[4096];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) text.append(buf, n);
    int status = ::pclose(p);
    if (out) *out = text;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A file name in lower case, to match names in any letter case.
static std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::vector<std::string> corpus_tables() {
    namespace fs = std::filesystem;
    std::vector<std::string> out;
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(QZ_CORPUS_DIR, ec);
         !ec && it != fs::recursive_directory_iterator(); it.increment(ec))
        if (it->is_regular_file() && lower(it->path().extension().string()) == ".dbf")
            out.push_back(it->path().string());
    std::sort(out.begin(), out.end());
    return out;
}

std::string copy_with_companions(const std::string& table, const std::string& to) {
    namespace fs = std::filesystem;
    const fs::path t(table);
    fs::create_directories(to);
    for (const auto& e : fs::directory_iterator(t.parent_path())) {
        if (!e.is_regular_file() || lower(e.path().stem().string()) != lower(t.stem().string()))
            continue;
        const fs::path copy = fs::path(to) / e.path().filename();
        fs::copy_file(e.path(), copy, fs::copy_options::overwrite_existing);
        fs::permissions(copy, fs::perms::owner_write, fs::perm_options::add);
    }
    return (fs::path(to) / t.filename()).string();
}

bool have_dbfread() {
    static const bool yes = run("/usr/bin/python3 -c 'import dbfread' 2>/dev/null") == 0;
    return yes;
}

std::vector<uint8_t> dbf_bytes(uint8_t version, const std::vector<Field_def>& fields,
                               const std::vector<std::vector<std::string>>& records, uint8_t driver,
                               size_t backlink) {
    const size_t header = 32 + 32 * fields.size() + 1 + backlink;
    size_t length = 1;
    for (const Field_def& f : fields) length += f.length;
    std::vector<uint8_t> b(header, 0);
    const size_t numbers[][3] = {{4, 4, records.size()}, {8, 2, header}, {10, 2, length}};
    for (const auto& n : numbers)
        for (size_t i = 0; i < n[1]; ++i) b[n[0] + i] = static_cast<uint8_t>(n[2] >> (8 * i));
    b[0] = version;
    b[1] = 124, b[2] = b[3] = 1;
    b[29] = driver;
    for (size_t i = 0, offset = 1; i < fields.size(); offset += fields[i++].length) {
        uint8_t* d = &b[32 + 32 * i];
        std::memcpy(d, fields[i].name.data(), std::min<size_t>(fields[i].name.size(), 10));
        d[11] = static_cast<uint8_t>(fields[i].type);
        d[12] = static_cast<uint8_t>(offset);
        d[16] = fields[i].length;
        d[17] = fields[i].decimals;
    }
    b[32 + 32 * fields.size()] = 0x0D;
    for (const auto& cells : records) {
        b.push_back(' ');
        for (size_t i = 0; i < fields.size(); ++i) {
            std::string cell = i < cells.size() ? cells[i] : std::string();
            cell.resize(fields[i].length, ' ');
            b.insert(b.end(), cell.begin(), cell.end());
        }
    }
    b.push_back(0x1A);
    return b;
}

bool make_char_table(const std::string& path, const std::vector<unsigned>& lengths,
                     unsigned records) {
    std::vector<Tqz_dbf_field> fields(lengths.size());
    for (size_t i = 0; i < lengths.size(); ++i)
        qz_dbf_field_init(&fields[i], ("F" + std::to_string(i)).c_str(), dbf_ft_char, lengths[i],
                          0);
    Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), static_cast<unsigned>(fields.size()), records,
                                  fields.data(), false);
    if (!t) return false;
    qz_dbf_close(t);
    return true;
}

uint32_t u32_at(const std::vector<uint8_t>& b, size_t at) {
    return at + 4 <= b.size() ? u16_at(b, at) | uint32_t(u16_at(b, at + 2)) << 16 : 0;
}

unsigned u16_at(const std::vector<uint8_t>& b, size_t at) {
    return at + 2 <= b.size() ? unsigned(b[at]) | unsigned(b[at + 1]) << 8 : 0;
}

std::string raw_cell(const std::vector<uint8_t>& b, unsigned record, unsigned offset,
                     unsigned length) {
    const size_t at = u16_at(b, 8) + size_t(u16_at(b, 10)) * record + offset;
    if (at + length > b.size()) return "<missing>";
    std::string s(b.begin() + at, b.begin() + at + length);
    while (!s.empty() && s.back() == ' ') s.pop_back();
    return s;
}

Fed::Fed()
    : adp(qz_string_adp_create(
          [](void* u, const char* s) { static_cast<Fed*>(u)->narrow = s ? s : "(null)"; },
          [](void* u, const wchar_t* s) { static_cast<Fed*>(u)->wide = s ? s : L"(null)"; },
          this)) {}

Fed::~Fed() {
    qz_string_adp_destroy(adp);
}

}  // namespace qz_test
