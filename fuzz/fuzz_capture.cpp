// A sequence of captures, held against a model of the folder: each copy is in its file with its size in the file beside
// it, under the numbers of one ring, and `zelhost decode --sizes` reads those sizes back.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "common/capture.h"
#include "fuzz.h"
#include "host/commands/decode_sizes.h"
#include "host/lib/overrides.h"
#include "platform/event_ids.h"

namespace fs = std::filesystem;

namespace {

constexpr int kRing = 21;
constexpr const char* kNames[] = {"ioa_alarm.data", "ioa_trc.data",   "ioc_alarm.data",
                                  "ioc_trc.data",   "kov_alarm.data", "kov_trc.data"};

// In memory where that is possible; removed when the process ends.
struct Folder {
    Folder() {
        const bool in_memory = fs::exists("/dev/shm");
        path = (in_memory ? "/dev/shm" : fs::temp_directory_path().string()) + "/fuzz_captureXXXXXX";
        FUZZ_CHECK(mkdtemp(path.data()) != nullptr);
        zelhost::overrides::redirect_flag_folder(path);
    }
    ~Folder() { fs::remove_all(path); }
    std::string read(const std::string& name) const {
        std::ifstream stream(path + "/" + name, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    std::string path;
};

// What must stand in the folder. The number goes on from input to input, as it does in the plug-in.
class Model {
public:
    void add(const std::string& kind, std::string_view bytes) {
        const std::string name = kind + "." + std::to_string(next_);
        copies_[name] = bytes;
        sizes_[name].push_back(bytes.size());
        next_ = next_ % kRing + 1;
    }
    void check(const Folder& folder) {
        for (const auto& [name, bytes] : copies_) {
            FUZZ_CHECK(folder.read(name) == bytes);
            const std::vector<uint64_t> sizes = zelhost::parse_sizes(folder.read(name + ".size"));
            FUZZ_CHECK(sizes == sizes_[name] && zelhost::compare_sizes(bytes.size(), sizes).agrees);
        }
        const auto files = std::distance(fs::directory_iterator(folder.path), {});
        FUZZ_CHECK(static_cast<size_t>(files) == 2 * copies_.size() + (flag_ ? 1 : 0));
    }
    void begin(const Folder& folder) {
        for (const auto& entry : fs::directory_iterator(folder.path)) fs::remove(entry);
        copies_.clear();
        sizes_.clear();
        flag_ = false;
    }
    bool flag() const { return flag_; }
    void switch_flag(const Folder& folder) {
        flag_ = !flag_;
        const fs::path file = fs::path(folder.path) / fs::path(kCaptureFlag).filename();
        if (flag_)
            std::ofstream(file).flush();
        else
            fs::remove(file);
    }

private:
    int next_ = 1;
    bool flag_ = false;
    std::map<std::string, std::string> copies_;
    std::map<std::string, std::vector<uint64_t>> sizes_;
};

// Which file the result of a trace goes to; other events have none.
const char* trace_file(uint32_t event_id) {
    switch (event_id) {
        case event_id::ioa_alert: return kNames[1];
        case event_id::ioc: return kNames[3];
        case event_id::kov: return kNames[5];
        default: return nullptr;
    }
}

void capture(fuzz::Bytes& input, Model& model) {
    const uint32_t kind = input.below(12);
    const std::string bytes(input.text());
    const char* const data = bytes.empty() ? nullptr : bytes.data();
    if (kind < std::size(kNames)) {
        CaptureData(data, bytes.size(), static_cast<CaptureKind>(kind));
        if (model.flag()) model.add(kNames[kind], bytes);
        return;
    }
    constexpr uint32_t kTraced[] = {
        event_id::ioa_alert, event_id::ioc, event_id::kov, event_id::memory_trojan, event_id::file_trace_file, 0};
    const uint32_t event_id = kTraced[kind - std::size(kNames)];
    CaptureTraceData(data, bytes.size(), event_id);
    if (model.flag() && trace_file(event_id) != nullptr) model.add(trace_file(event_id), bytes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Folder folder;
    static Model model;
    model.begin(folder);
    model.switch_flag(folder);
    fuzz::Bytes input(data, size);
    while (!input.empty()) {
        if (input.below(8) == 0)
            model.switch_flag(folder);
        else
            capture(input, model);
    }
    model.check(folder);
    return 0;
}
