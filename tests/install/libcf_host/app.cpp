// A program that uses libcf without libkai.
#include <cf/json.h>
#include <cf/rest.h>
#include <cf/utilities.h>

#include <cstdio>

int main() {
    COJson document;
    document.obtainRoot().addKeyValue("text").setString(cfTrimAsString(" a \"quoted\" word\n"));
    const std::string text = document.obtainJsonString();
    std::printf("%s %s\n", CMRestGlobalSettings{}.userAgent.c_str(), text.c_str());
    return text == R"({"text":"a \"quoted\" word"})" && COJson(text).getIsValidJson() ? 0 : 1;
}
