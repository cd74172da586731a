// Writes reproducible file contents for the benchmark packages to standard
// output, the same bytes for the same arguments on every machine:
//
//   deckwright-bench-data random BYTES SEED   incompressible, like movies and photos
//   deckwright-bench-data text BYTES SEED     words and markup, compresses about 5:1

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {
// splitmix64: tiny, fast, and good enough that deflate finds nothing to gain.
struct Generator
{
    uint64_t state;
    uint64_t next()
    {
        uint64_t z = (state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
};

const char *const kWords[] = {
    "slide",     "build",      "transition", "master",     "placeholder",  "body",     "title",  "bullet",
    "chart",     "table",      "image",      "movie",      "audio",        "shape",    "line",   "fill",
    "stroke",    "shadow",     "opacity",    "reflection", "layout",       "group",    "text",   "paragraph",
    "style",     "font",       "size",       "color",      "presentation", "theme",    "notes",  "duration",
    "dissolve",  "cube",       "page-flip",  "origin",     "width",        "height",   "x",      "y",
    "angle",     "scale",      "crop",       "mask",       "frame",        "geometry", "<sf:p>", "</sf:p>",
    "<sf:span>", "</sf:span>", "=\"",        "\"",         "0.5",          "1024",     "768",    "\n",
};

int usage()
{
    std::fputs("Usage: deckwright-bench-data random|text BYTES SEED\n", stderr);
    return 2;
}
} // namespace

int main(int argc, char *argv[])
{
    if (argc != 4)
        return usage();
    const bool text = std::strcmp(argv[1], "text") == 0;
    if (!text && std::strcmp(argv[1], "random") != 0)
        return usage();
    const long long total = std::atoll(argv[2]);
    Generator gen{std::strtoull(argv[3], nullptr, 10) * 0x2545F4914F6CDD1Dull + 1};

    constexpr size_t chunk = 1 << 20;
    std::vector<char> buffer;
    buffer.reserve(chunk + 64);
    long long written = 0;
    while (written < total) {
        buffer.clear();
        if (text) {
            constexpr size_t count = sizeof kWords / sizeof kWords[0];
            while (buffer.size() < chunk) {
                const char *word = kWords[gen.next() % count];
                buffer.insert(buffer.end(), word, word + std::strlen(word));
                buffer.push_back(' ');
            }
        } else {
            buffer.resize(chunk);
            for (size_t i = 0; i < chunk; i += 8) {
                const uint64_t v = gen.next();
                std::memcpy(buffer.data() + i, &v, 8);
            }
        }
        const size_t n = size_t(std::min<long long>(total - written, (long long)buffer.size()));
        if (std::fwrite(buffer.data(), 1, n, stdout) != n)
            return 1;
        written += (long long)n;
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
}
