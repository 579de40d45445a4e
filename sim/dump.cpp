#include "sim/dump.h"

namespace qvsim {

std::string dumpModel(const SimCluster& c)
{
    return nlohmann::json(c).dump(1);
}

SimCluster loadModel(const std::string& json)
{
    return nlohmann::json::parse(json).get<SimCluster>();
}

} // namespace qvsim
