#include "detectors/model_access.h"

#include <mutex>
#include <shared_mutex>

#include "engine/globals.h"

namespace Detectors {

std::shared_ptr<Inference::LoadedModel> usableModel(std::uint32_t identifier) {
    std::shared_ptr<Resources::ResourceDetails> entry;
    {
        std::shared_lock<std::shared_mutex> lock(Nubex::g_RegistryMutex);
        entry = Resources::findResourceDetails(Nubex::g_arrResourceDetails, identifier);
    }
    if (!entry) return nullptr;
    auto model = entry->model.load();
    return model && model->pool ? model : nullptr;
}

}  // namespace Detectors
