#include "launcher/launch_item.h"

std::string ItemKey(int index)
{
    return std::to_string(index);
}

bool HasItem(JsonObject& list, int index)
{
    return list.HasObject(ItemKey(index).c_str());
}

JsonObject GetItem(JsonObject& list, int index)
{
    return list[ItemKey(index).c_str()];
}

bool HasName(JsonObject& item)
{
    return item.HasObject("/name");
}

std::string ItemName(JsonObject& item)
{
    return item["name"];
}

std::string ItemProgram(JsonObject& item)
{
    return item["program"];
}

int ItemArgumentCount(JsonObject& item)
{
    return item.HasObject("argc") ? static_cast<int>(item["argc"]) : 0;
}

std::string ItemArgument(JsonObject& item, int index)
{
    return item["args"][ItemKey(index).c_str()];
}
