// A plugin as the XSLT processor would load it for the namespace
// http://example.com/plugin. Loading it is all it does, and it says so.
#include <cstdlib>

namespace {
[[gnu::constructor]] void Loaded() { setenv("TK_XSLT_PLUGIN_LOADED", "1", 1); }
}  // namespace
