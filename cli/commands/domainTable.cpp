#include "cli/commands/domainTable.h"

#include <cstdio>

namespace cli {

Json domainJson(unsigned index, const LonAddress& entry, bool showKey) {
    const tavo::DomainFields fields = tavo::fieldsOf(entry);
    Json json{{"index", index},          {"in_use", fields.inUse}, {"domain_id", fields.domainId},
              {"subnet", fields.subnet}, {"node", fields.node},    {"clone", fields.isClone}};
    if (fields.flags != 0) json["flags"] = fields.flags;
    json["key"] = showKey ? Json(fields.key) : Json(nullptr);
    return json;
}

std::string domainText(unsigned index, const LonAddress& entry, bool showKey) {
    const tavo::DomainFields fields = tavo::fieldsOf(entry);
    char text[96];
    std::snprintf(text, sizeof text, "%u  domain %-12s  subnet %3u  node %3u  key ", index,
                  fields.domainId.empty() ? "-" : fields.domainId.c_str(), fields.subnet, fields.node);
    return text + (showKey ? fields.key : "hidden") + (fields.inUse ? "" : "  not in use");
}

}  // namespace cli
