// The language-model services the host can configure out of the box.
#include <stdexcept>
#include <string>
#include <vector>

#include "orvid/core/corelib/ai_provider.h"
#include "orvid/core/corelib/orvid_defaults.h"

namespace orvid {
namespace {

URL url(const char* text) {
  auto parsed = URL::parse(text);
  if (!parsed) throw std::logic_error(std::string("built-in provider URL does not parse: ") + text);
  return *parsed;
}

struct Capabilities {
  bool modelDiscovery = true;
  bool structuredOutput = false;
  bool reasoningEffort = false;
  bool reasoningObject = false;
};

AIProviderDescriptor descriptor(const char* id, const char* displayName, AIProviderAPIStyle style,
                                std::optional<URL> baseURL, Capabilities capabilities,
                                std::vector<AIProviderHeader> headers = {}, bool isLocal = false) {
  AIProviderDescriptor result;
  result.id = id;
  result.displayName = displayName;
  result.apiStyle = style;
  result.defaultBaseURL = std::move(baseURL);
  result.modelListPath = "models";
  result.defaultHeaders = std::move(headers);
  result.supportsModelDiscovery = capabilities.modelDiscovery;
  result.supportsStructuredOutput = capabilities.structuredOutput;
  result.supportsReasoningEffort = capabilities.reasoningEffort;
  result.supportsReasoningObject = capabilities.reasoningObject;
  result.isLocal = isLocal;
  return result;
}

std::vector<AIProviderDescriptor> makeDescriptors() {
  using Style = AIProviderAPIStyle;
  return {
      // Structured outputs and "reasoning_effort" for its reasoning models.
      descriptor("openai", "OpenAI", Style::openAICompatibleBearer, url("https://api.openai.com/v1"),
                 {.structuredOutput = true, .reasoningEffort = true}),
      // The messages API; every request names the API version.
      descriptor("anthropic", "Anthropic", Style::anthropicMessages, url("https://api.anthropic.com/v1"), {},
                 {{"anthropic-version", "2023-06-01"}}),
      // A router in front of many vendors; takes the "reasoning" object.
      descriptor("openrouter", "OpenRouter", Style::openAICompatibleBearer, url("https://openrouter.ai/api/v1"),
                 {.structuredOutput = true, .reasoningObject = true}),
      descriptor("gemini", "Google Gemini", Style::openAICompatibleBearer,
                 url("https://generativelanguage.googleapis.com/v1beta/openai"), {.structuredOutput = true}),
      descriptor("groq", "Groq", Style::openAICompatibleBearer, url("https://api.groq.com/openai/v1"),
                 {.structuredOutput = true}),
      descriptor("mistral", "Mistral AI", Style::openAICompatibleBearer, url("https://api.mistral.ai/v1"),
                 {.structuredOutput = true}),
      descriptor("xai", "xAI", Style::openAICompatibleBearer, url("https://api.x.ai/v1"), {.structuredOutput = true}),
      // JSON mode only, no JSON schemas.
      descriptor("deepseek", "DeepSeek", Style::openAICompatibleBearer, url("https://api.deepseek.com/v1"), {}),
      descriptor("together", "Together AI", Style::openAICompatibleBearer, url("https://api.together.xyz/v1"),
                 {.structuredOutput = true}),
      descriptor("fireworks", "Fireworks AI", Style::openAICompatibleBearer,
                 url("https://api.fireworks.ai/inference/v1"), {.structuredOutput = true}),
      descriptor("moonshot", "Moonshot AI (Kimi)", Style::openAICompatibleBearer, url("https://api.moonshot.ai/v1"), {}),
      descriptor("moonshot-cn", "Moonshot AI (Kimi, China)", Style::openAICompatibleBearer,
                 url("https://api.moonshot.cn/v1"), {}),
      // BigModel offers no model list endpoint.
      descriptor("zhipu", "Zhipu AI (BigModel)", Style::openAICompatibleBearer,
                 url("https://open.bigmodel.cn/api/paas/v4"), {.modelDiscovery = false}),
      descriptor("qwen", "Qwen (DashScope, China)", Style::openAICompatibleBearer,
                 url("https://dashscope.aliyuncs.com/compatible-mode/v1"), {}),
      descriptor("qwen-intl", "Qwen (DashScope, International)", Style::openAICompatibleBearer,
                 url("https://dashscope-intl.aliyuncs.com/compatible-mode/v1"), {}),
      descriptor("siliconflow", "SiliconFlow", Style::openAICompatibleBearer, url("https://api.siliconflow.cn/v1"),
                 {}),
      // Local servers: no key, structured outputs through their JSON-schema support.
      descriptor("ollama", "Ollama", Style::openAICompatibleWithoutKey, url("http://localhost:11434/v1"),
                 {.structuredOutput = true}, {}, true),
      descriptor("lmstudio", "LM Studio", Style::openAICompatibleWithoutKey, url("http://localhost:1234/v1"),
                 {.structuredOutput = true}, {}, true),
      // Any other OpenAI-compatible endpoint; the user supplies the address.
      descriptor("openai-compatible", "Custom (OpenAI-compatible)", Style::openAICompatibleBearer, std::nullopt, {}),
  };
}

}  // namespace

const std::vector<AIProviderDescriptor>& OrvidDefaults::aiProviderDescriptors() {
  static const std::vector<AIProviderDescriptor> descriptors = makeDescriptors();
  return descriptors;
}

}  // namespace orvid
