#include "app/MachineParts.h"
#include "hosts/portable/CurlHttpClient.h"

namespace snipwren {
std::unique_ptr<HttpClient> makeHttpClient() { return std::make_unique<CurlHttpClient>(); }
} // namespace snipwren
