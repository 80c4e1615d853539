#include "context/mcp/McpTools.h"

namespace snipwren {
namespace {
// openWorldHint says whether a tool reaches beyond this machine; destructiveHint whether it may overwrite or delete.
constexpr McpTool tools[] = {
    {"snipwren_push_context", "snipwren.pushContext",
     R"({"name":"snipwren_push_context","title":"Set the working context",
"description":"Tell Snipwren what the user is working on. Replaces the stored context as a whole; members left out become empty. Everyone subscribed to the context is told.",
"inputSchema":{"type":"object","properties":{
"project":{"type":"string","description":"Name of the project"},
"topic":{"type":"string","description":"What is being worked on in it"},
"relatedNotes":{"type":["string","array"],"items":{"type":"string"},"description":"Notes that matter for it"},
"activeDecision":{"type":"string","description":"The decision being weighed"},
"metadata":{"type":["string","object"],"description":"Anything else"}}},
"annotations":{"title":"Set the working context","readOnlyHint":false,"destructiveHint":true,"idempotentHint":true,"openWorldHint":false}})"},
    {"snipwren_push_suggestions", "snipwren.pushSuggestions",
     R"({"name":"snipwren_push_suggestions","title":"Suggest something to the user",
"description":"Put suggestions into the user's queue, shown by priority until they expire. A suggestion with a known id replaces the earlier one.",
"inputSchema":{"type":"object","properties":{"suggestions":{"type":"array","items":{"type":"object","properties":{
"id":{"type":"string","description":"A UUID; made when left out"},
"title":{"type":"string"},
"body":{"type":"string"},
"actionText":{"type":"string","description":"The text that accepting the suggestion yields"},
"priority":{"type":"integer","description":"Higher comes first; 0 when left out"},
"expiresAt":{"type":"number","description":"Seconds since 1970; ten minutes from now when left out"},
"sourceLabel":{"type":"string","description":"Who suggests it"}},
"required":["title","actionText"]}}},"required":["suggestions"]},
"annotations":{"title":"Suggest something to the user","readOnlyHint":false,"destructiveHint":false,"idempotentHint":false,"openWorldHint":false}})"},
    {"snipwren_push_memory", "snipwren.pushMemory", R"({"name":"snipwren_push_memory","title":"Remember something",
"description":"Store a memory under a key, encrypted on this machine. The same key replaces the earlier memory.",
"inputSchema":{"type":"object","properties":{
"key":{"type":"string"},
"value":{"type":"string","description":"Stored encrypted"},
"context":{"type":"string","description":"When it applies; stored as it stands"},
"tags":{"type":["string","array"],"items":{"type":"string"}}},
"required":["key","value","context"]},
"annotations":{"title":"Remember something","readOnlyHint":false,"destructiveHint":true,"idempotentHint":true,"openWorldHint":false}})"},
    {"snipwren_query_context", "snipwren.queryContext",
     R"({"name":"snipwren_query_context","title":"What is the user doing?",
"description":"The stored working context together with the application, window and kind of field that have the keyboard now. The field's text is added only when asked for, when the user has allowed it in the settings, and never for fields that look like secrets.",
"inputSchema":{"type":"object","properties":{"includeText":{"type":"boolean","description":"Ask for the text of the focused field"}}},
"outputSchema":{"type":"object","properties":{
"project":{"type":"string"},"topic":{"type":"string"},"relatedNotes":{"type":"string"},"activeDecision":{"type":"string"},"metadata":{"type":"string"},
"activeApplication":{"type":"string"},"focusedContext":{"type":"string","enum":["email","search","plainText","unknown"]},"focusedLabel":{"type":"string"},"windowTitle":{"type":"string"},
"pushedContext":{"type":["object","null"]},"text":{"type":"string"}},
"required":["project","topic","relatedNotes","activeDecision","metadata","activeApplication","focusedContext","focusedLabel","windowTitle","pushedContext"]},
"annotations":{"title":"What is the user doing?","readOnlyHint":true,"openWorldHint":false}})"},
    {"snipwren_clear_suggestions", "snipwren.clearSuggestions",
     R"({"name":"snipwren_clear_suggestions","title":"Take suggestions back",
"description":"Remove the suggestions with these ids, or all of them when no ids are given.",
"inputSchema":{"type":"object","properties":{"ids":{"type":"array","items":{"type":"string"}}}},
"annotations":{"title":"Take suggestions back","readOnlyHint":false,"destructiveHint":true,"idempotentHint":true,"openWorldHint":false}})"},
    {"snipwren_trigger_ai", "snipwren.triggerAI",
     R"({"name":"snipwren_trigger_ai","title":"Ask the user's AI assistant",
"description":"Have the assistant that the user set up in Snipwren complete a prompt. This may send the prompt to the user's AI provider.",
"inputSchema":{"type":"object","properties":{
"prompt":{"type":"string"},
"action":{"type":"string","description":"The assistant's action; the custom one when left out"},
"style":{"type":"string","default":"professional"},
"language":{"type":"string","default":"English"},
"maxTokens":{"type":"integer","minimum":1}},"required":["prompt"]},
"outputSchema":{"type":"object","properties":{"text":{"type":"string"},"provider":{"type":"string"},"model":{"type":"string"},"estimatedTokens":{"type":"integer"}},
"required":["text","provider","model","estimatedTokens"]},
"annotations":{"title":"Ask the user's AI assistant","readOnlyHint":false,"destructiveHint":false,"idempotentHint":false,"openWorldHint":true}})"},
    {"snipwren_query_graph", "snipwren.queryGraph",
     R"({"name":"snipwren_query_graph","title":"Look into the knowledge graph",
"description":"Find entities by id, type or part of their name, or walk from one along its relationships in either direction. Answers the nodes and the edges between them.",
"inputSchema":{"type":"object","properties":{
"id":{"type":"string"},
"type":{"type":"string"},
"name":{"type":"string","description":"A part of the name, in any letter case"},
"relationship":{"type":"string","description":"Follow and answer only edges of this kind"},
"from":{"type":"string","description":"Id of the node to walk from"},
"depth":{"type":"integer","minimum":0,"maximum":4,"description":"How many steps to walk; 1 with 'from', otherwise 0, when left out"},
"limit":{"type":"integer","minimum":1,"maximum":1000,"description":"At most so many nodes; 100 when left out"}}},
"outputSchema":{"type":"object","properties":{"nodes":{"type":"array","items":{"type":"object"}},"edges":{"type":"array","items":{"type":"object"}}},"required":["nodes","edges"]},
"annotations":{"title":"Look into the knowledge graph","readOnlyHint":true,"openWorldHint":false}})"},
    {"snipwren_push_node", "snipwren.pushNode", R"({"name":"snipwren_push_node","title":"Add to the knowledge graph",
"description":"Create an entity, or give a known one a new name and new properties. Its type stays what it was.",
"inputSchema":{"type":"object","properties":{
"id":{"type":"string"},"type":{"type":"string","description":"For example person, project or concept"},"name":{"type":"string"},
"properties":{"type":"object"}},"required":["id","type","name"]},
"annotations":{"title":"Add to the knowledge graph","readOnlyHint":false,"destructiveHint":true,"idempotentHint":true,"openWorldHint":false}})"},
    {"snipwren_push_edge", "snipwren.pushEdge", R"({"name":"snipwren_push_edge","title":"Connect two entities",
"description":"Create a relationship between two known entities, or give a known one new properties.",
"inputSchema":{"type":"object","properties":{
"id":{"type":"string"},"source":{"type":"string","description":"Id of the node it leaves"},"target":{"type":"string","description":"Id of the node it arrives at"},
"relationship":{"type":"string"},"properties":{"type":"object"}},"required":["id","source","target","relationship"]},
"annotations":{"title":"Connect two entities","readOnlyHint":false,"destructiveHint":true,"idempotentHint":true,"openWorldHint":false}})"},
    {McpTools::captureName, "", R"({"name":"snipwren_capture","title":"Capture for the user",
"description":"Send a text to one of the user's capture targets, exactly as if they had typed it after the target's command: a note, a reminder, a timer (\"25m tea\"), an alarm, a calendar event, a calculation, a daily note, a message. A capture that fails is kept in the recovery log.",
"inputSchema":{"type":"object","properties":{
"target":{"type":"string","enum":["note","reminders","copy","timer","calc","alarm","calendar","obsidian","slack","logseq"]},
"text":{"type":"string"}},
"required":["target","text"]},
"annotations":{"title":"Capture for the user","readOnlyHint":false,"destructiveHint":false,"idempotentHint":false,"openWorldHint":true}})"},
};
} // namespace

const McpTool* McpTools::find(std::string_view name) {
    for (const auto& tool : tools)
        if (tool.name == name) return &tool;
    return nullptr;
}

std::string McpTools::listJson() {
    std::string out = "[";
    for (const auto& tool : tools) {
        if (out.size() > 1) out += ',';
        for (const char c : tool.json)
            if (c != '\n') out += c; // A message is one line.
    }
    return out + "]";
}
} // namespace snipwren
