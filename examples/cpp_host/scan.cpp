// A C++ host: scans pictures on several threads at once with the installed
// engine and its default resource pack, and prints one document per picture.
//
//   nubex-cpp-host [--categories "8337, 9112"] PICTURE...
//
// The engine's texts are wrapped so that they are always given back with
// ReleaseNubexMemory().
#include <nubex_engine.h>
#include <stb_image.h>

#include <cstdint>
#include <cstring>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

struct ReleaseNubex {
    void operator()(void* memory) const { ReleaseNubexMemory(memory); }
};
using NubexText = std::unique_ptr<char, ReleaseNubex>;

// A picture in the engine's layout: blue, green, red, rows padded by width % 4 bytes.
struct Picture {
    std::vector<std::uint8_t> bytes;
    int width = 0;
    int height = 0;
};

Picture readPicture(const std::string& path) {
    int width = 0, height = 0, channels = 0;
    std::unique_ptr<stbi_uc, void (*)(void*)> rgb(stbi_load(path.c_str(), &width, &height, &channels, 3),
                                                   stbi_image_free);
    if (!rgb) throw std::runtime_error("cannot read " + path + ": " + stbi_failure_reason());
    Picture picture;
    picture.width = width;
    picture.height = height;
    const std::size_t stride = static_cast<std::size_t>(width) * 3 + width % 4;
    picture.bytes.assign(stride * height, 0);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const stbi_uc* from = rgb.get() + (static_cast<std::size_t>(y) * width + x) * 3;
            std::uint8_t* to = picture.bytes.data() + y * stride + x * 3;
            to[0] = from[2];
            to[1] = from[1];
            to[2] = from[0];
        }
    }
    return picture;
}

// Every category the engine offers, as "id,id,...".
std::string allCategories() {
    char** listed = nullptr;
    const std::int32_t count = GetNubexCategories(&listed);
    std::string list;
    for (std::int32_t i = 0; i < count; ++i) {
        NubexText entry(listed[i]);  // "<identifier>\t<name>"
        if (!list.empty()) list += ',';
        list.append(entry.get(), std::strcspn(entry.get(), "\t"));
    }
    ReleaseNubexMemory(listed);
    return list;
}

std::string scan(const Picture& picture, const std::string& categories) {
    std::vector<float> scores(categories.size() + 1);  // more than the list can name
    NubexText document(ScanImage(picture.bytes.data(), static_cast<std::int32_t>(picture.bytes.size()),
                                 picture.width, picture.height, categories.c_str(), scores.data(), 50.0f));
    return document.get();
}

}  // namespace

int main(int argc, char** argv) {
    std::string categories;
    std::vector<std::string> paths;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--categories") == 0 && i + 1 < argc) {
            categories = argv[++i];
        } else {
            paths.emplace_back(argv[i]);
        }
    }
    if (paths.empty()) {
        std::cerr << "usage: nubex-cpp-host [--categories LIST] PICTURE...\n";
        return 2;
    }
    try {
        std::vector<Picture> pictures;
        for (const auto& path : paths) pictures.push_back(readPicture(path));

        NubexText version(GetNubexEngineVersion());
        std::cerr << version.get() << "\n";
        InitializeNubexEngine();
        if (categories.empty()) categories = allCategories();

        // ScanImage may run on any number of threads at once.
        std::vector<std::string> documents(pictures.size());
        std::vector<std::thread> threads;
        for (std::size_t i = 0; i < pictures.size(); ++i) {
            threads.emplace_back([&, i] { documents[i] = scan(pictures[i], categories); });
        }
        for (auto& thread : threads) thread.join();

        for (std::size_t i = 0; i < documents.size(); ++i) {
            if (documents.size() > 1) std::cout << paths[i] << "\t";
            std::cout << documents[i] << "\n";
        }
        DeInitializeNubexEngine(-1);
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
    return 0;
}
