// tarvu-check: what a call would touch and what is wrong with it, for a parameter block in a file or a call in JSON.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

#include "contract/tarvu_check/call_of_json.h"

namespace tarvu_check {
namespace {

using Json = nlohmann::ordered_json;

constexpr int kHasFaults = 1;
constexpr int kBadInput = 2;
constexpr size_t kMostBytes = size_t{1} << 20;  ///< of the input

/// What is asked for on the command line.
struct Request {
  std::string function;
  std::string file = "-";
  bool json = false;
};

struct Answer {
  std::string function;
  std::string description;
  uint64_t scratch_bytes;
  std::vector<tarvu_contract_range> ranges;
  std::vector<tarvu_contract_finding> findings;
};

const char *name_of_role(int32_t role) {
  static constexpr const char *kNames[] = {"reads", "writes", "scratch", "scratch and result", "parameter"};
  return kNames[role];
}

const char *name_of_kind(int32_t kind) {
  static constexpr const char *kNames[] = {"refused", "told", "undefined", "kept", "waste"};
  return kNames[kind];
}

int bad_input(const std::string &sentence) {
  std::fprintf(stderr, "tarvu-check: %s.\n", sentence.c_str());
  return kBadInput;
}

/// The whole input. What is wrong with it, or nothing.
std::string read_input(const std::string &path, std::string &content) {
  std::FILE *file = path == "-" ? stdin : std::fopen(path.c_str(), "rb");
  if (file == nullptr) return "cannot read " + path + ": " + std::strerror(errno);
  content.resize(kMostBytes + 1);
  content.resize(std::fread(content.data(), 1, content.size(), file));
  const bool is_read = std::ferror(file) == 0;
  const int fault = errno;
  if (file != stdin) std::fclose(file);
  if (!is_read) return "cannot read " + path + ": " + std::strerror(fault);
  return content.size() > kMostBytes ? path + " is larger than 1 MiB" : "";
}

/// A call of `function` with the block that is the content.
std::string call_of_block(const std::string &function, const std::string &content, Call &made) {
  made.call.function = tarvu_contract_function(function.c_str());
  const tarvu_contract_function_info *info = tarvu_contract_function_info_of(made.call.function);
  if (info == nullptr) return "there is no function " + function;
  uint8_t *block = add_block(made);
  if (block == nullptr) return function + " takes no parameter block; write the call as JSON";
  if (content.size() != info->block_bytes) {
    return "the input has " + std::to_string(content.size()) + " bytes, but " + info->block + " has " +
           std::to_string(info->block_bytes);
  }
  std::memcpy(block, content.data(), content.size());
  return "";
}

Answer answer_of(const Call &made) {
  const tarvu_contract_call *call = &made.call;
  const uint32_t options = has_address(made) ? 0 : uint32_t{TARVU_CONTRACT_WITHOUT_ADDRESSES};
  Answer answer = {
      tarvu_contract_function_info_of(call->function)->name, "", tarvu_contract_scratch_bytes(call), {}, {}};
  answer.description.resize(tarvu_contract_describe(call, nullptr, 0) + 1);
  tarvu_contract_describe(call, answer.description.data(), answer.description.size());
  answer.description.pop_back();
  answer.ranges.resize(tarvu_contract_ranges(call, options, 0, nullptr, 0));
  tarvu_contract_ranges(call, options, 0, answer.ranges.data(), answer.ranges.size());
  answer.findings.resize(tarvu_contract_findings(call, options, nullptr, 0));
  tarvu_contract_findings(call, options, answer.findings.data(), answer.findings.size());
  return answer;
}

/// A line that the function would print, its colours and its end made visible.
std::string visible(const char *line) {
  std::string text;
  for (; *line != 0; ++line) {
    text += *line == '\033' ? "\\033" : *line == '\r' ? "\\r" : *line == '\n' ? "\\n" : std::string(1, *line);
  }
  return text;
}

void print_range(const tarvu_contract_range &range) {
  std::printf("  %s %s%s, %llu bytes from byte %lld on, %u bytes an element", name_of_role(range.role), range.field,
              range.exact != 0 ? "" : " at most", static_cast<unsigned long long>(tarvu_contract_range_bytes(&range)),
              static_cast<long long>(range.offset), range.element_bytes);
  for (uint32_t i = 0; i < range.extent_count; ++i) {
    if (range.extents[i].count == 1) continue;
    std::printf(", %llu times every %lld", static_cast<unsigned long long>(range.extents[i].count),
                static_cast<long long>(range.extents[i].step));
  }
  std::printf("\n");
}

void print_words(const Answer &answer) {
  std::printf("%sscratch: %llu bytes\nranges: %zu\n", answer.description.c_str(),
              static_cast<unsigned long long>(answer.scratch_bytes), answer.ranges.size());
  for (const tarvu_contract_range &range : answer.ranges) print_range(range);
  std::printf("findings: %zu\n", answer.findings.size());
  for (const tarvu_contract_finding &finding : answer.findings) {
    std::printf("  %s, %s: %s\n", finding.id, name_of_kind(finding.kind), finding.sentence);
    if (finding.line[0] != 0) std::printf("    prints \"%s\"\n", visible(finding.line).c_str());
    if (finding.kind == TARVU_CONTRACT_REFUSED) std::printf("    returns %d\n", finding.result);
  }
}

void print_json(const Answer &answer) {
  Json object = {{"function", answer.function},
                 {"description", answer.description},
                 {"scratch_bytes", answer.scratch_bytes},
                 {"ranges", Json::array()},
                 {"findings", Json::array()}};
  for (const tarvu_contract_range &range : answer.ranges) {
    Json extents = Json::array();
    for (uint32_t i = 0; i < range.extent_count; ++i) {
      extents.push_back({{"count", range.extents[i].count}, {"step", range.extents[i].step}});
    }
    object["ranges"].push_back({{"field", range.field},
                                {"address", range.address},
                                {"offset", range.offset},
                                {"role", name_of_role(range.role)},
                                {"exact", range.exact != 0},
                                {"element_bytes", range.element_bytes},
                                {"alignment", range.alignment},
                                {"bytes", tarvu_contract_range_bytes(&range)},
                                {"extents", extents}});
  }
  for (const tarvu_contract_finding &finding : answer.findings) {
    Json entry = {{"id", finding.id},
                  {"kind", name_of_kind(finding.kind)},
                  {"field", finding.field},
                  {"value", finding.value},
                  {"sentence", finding.sentence}};
    if (finding.line[0] != 0) entry["line"] = finding.line;
    if (finding.kind == TARVU_CONTRACT_REFUSED) entry["result"] = finding.result;
    object["findings"].push_back(entry);
  }
  std::printf("%s\n", object.dump(2, ' ', true, Json::error_handler_t::replace).c_str());
}

int check(const Request &request) {
  std::string content;
  std::string fault = read_input(request.file, content);
  if (!fault.empty()) return bad_input(fault);
  Call made;
  fault = request.function.empty() ? call_of_json(content, made) : call_of_block(request.function, content, made);
  if (!fault.empty()) return bad_input(fault);
  const tarvu_contract_function_info &info = *tarvu_contract_function_info_of(made.call.function);
  if (info.described == 0) return bad_input("what calls of " + std::string(info.name) + " touch is not known");
  const Answer answer = answer_of(made);
  request.json ? print_json(answer) : print_words(answer);
  for (const tarvu_contract_finding &finding : answer.findings) {
    if (finding.kind == TARVU_CONTRACT_REFUSED || finding.kind == TARVU_CONTRACT_UNDEFINED) return kHasFaults;
  }
  return 0;
}

}  // namespace
}  // namespace tarvu_check

int main(int count, char **words) {
  tarvu_check::Request request;
  CLI::App app(
      "Tells what a call of libtarvu would touch and what is wrong with it. The call is a JSON object, or with\n"
      "--function a parameter block as it stands in memory.");
  app.name("tarvu-check");
  app.add_option("--function", request.function, "function that takes the parameter block in FILE");
  app.add_option("FILE", request.file, "the call, or the block; standard input without it");
  app.add_flag("--json", request.json, "answer in JSON");
  app.footer(
      "Exit code: 0, or 1 if the call would be refused or its effect is undefined, or 2 if the input is not a call.");
  try {
    app.parse(count, words);
  } catch (const CLI::CallForHelp &) {
    std::printf("%s", app.help().c_str());
    return 0;
  } catch (const CLI::ParseError &error) {
    return tarvu_check::bad_input(error.what());
  }
  return tarvu_check::check(request);
}
