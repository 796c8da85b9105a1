#include "corpus.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace tkbench {
namespace {

// splitmix64: small, fast and the same everywhere.
class Rng {
 public:
  explicit Rng(uint64_t seed) : m_state(seed) {}
  uint64_t Next() {
    uint64_t z = (m_state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  // Uniform enough in [0, n) for the small n used here.
  size_t Below(size_t n) { return static_cast<size_t>(Next() % n); }
  bool OneIn(size_t n) { return Below(n) == 0; }
  template <typename T, size_t N>
  const T& Pick(const T (&items)[N]) {
    return items[Below(N)];
  }

 private:
  uint64_t m_state;
};

constexpr const char* kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

void Indent(std::string& out, int depth) { out.append(static_cast<size_t>(depth) * 2, ' '); }

void AppendNumber(std::string& out, uint64_t value) { out += std::to_string(value); }

void AppendPadded(std::string& out, uint64_t value, int width) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%0*llu", width, static_cast<unsigned long long>(value));
  out += buffer;
}

void AppendHex(std::string& out, Rng& rng, int digits) {
  static const char kHex[] = "0123456789abcdef";
  for (int i = 0; i < digits; ++i) out += kHex[rng.Below(16)];
}

// --- config ---------------------------------------------------------------

const char* const kSettingWords[] = {"true", "false", "on", "off", "eth0", "localhost", "en_US",
                                     "/var/lib/app", "info", "debug", "utf-8", "auto", "none"};

void AppendSettingValue(std::string& out, Rng& rng) {
  switch (rng.Below(4)) {
    case 0:
      AppendNumber(out, rng.Below(65536));
      break;
    case 1:
      out += "0.";
      AppendNumber(out, rng.Below(100));
      break;
    case 2:
      AppendHex(out, rng, 8);
      break;
    default:
      out += rng.Pick(kSettingWords);
      break;
  }
}

class ConfigWriter {
 public:
  ConfigWriter(uint64_t seed, int levels, double leafCost)
      : m_rng(seed), m_levels(levels), m_leafCost(leafCost) {}

  std::string Document(double budget) {
    m_out = kDeclaration;
    m_out += "<config>\n";
    Children(1, budget);
    m_out += "</config>\n";
    return std::move(m_out);
  }

 private:
  // Writes the 20 children of an element at level (the root is level 1).
  // Settings come first, then the containers. The number of containers is
  // chosen so that the budget lasts down to the last level, and each
  // container gets an equal share of what is left when its turn comes, so
  // that a subtree that came out too large or too small is made up for by its
  // later siblings.
  void Children(int level, double budget) {
    const size_t start = m_out.size();
    const int childLevel = level + 1;
    const int levelsBelow = m_levels - childLevel;
    const double settingsOnly = kConfigFanout * m_leafCost;
    int containers = 0;
    if (levelsBelow > 0 && budget > settingsOnly) {
      const double ratio = (budget - settingsOnly) / settingsOnly;
      containers = levelsBelow == 1 ? static_cast<int>(std::lround(ratio))
                                    : static_cast<int>(std::pow(ratio, 1.0 / levelsBelow));
      containers = std::clamp(containers, levelsBelow == 1 ? 0 : 1, kConfigFanout);
    }
    for (int i = 0; i < kConfigFanout; ++i) {
      const bool container = i >= kConfigFanout - containers;
      const char* prefix = container ? "grp" : "opt";
      Indent(m_out, childLevel - 1);
      m_out += '<';
      m_out += prefix;
      AppendPadded(m_out, i, 2);
      m_out += '>';
      if (container) {
        m_out += '\n';
        const double used = static_cast<double>(m_out.size() - start);
        Children(childLevel, (budget - used) / (kConfigFanout - i));
        Indent(m_out, childLevel - 1);
      } else {
        AppendSettingValue(m_out, m_rng);
      }
      m_out += "</";
      m_out += prefix;
      AppendPadded(m_out, i, 2);
      m_out += ">\n";
    }
  }

  Rng m_rng;
  int m_levels;
  double m_leafCost;
  std::string m_out;
};

// --- prose ----------------------------------------------------------------

// Words, a few of them outside ASCII (2-, 3- and 4-byte UTF-8).
const char* const kWords[] = {
    "the",        "of",          "and",          "a",           "to",          "in",
    "is",         "that",        "for",          "it",          "as",          "with",
    "was",        "on",          "be",           "at",          "by",          "this",
    "document",   "element",     "value",        "tree",        "handle",      "library",
    "reader",     "writer",      "record",       "section",     "paragraph",   "history",
    "river",      "mountain",    "village",      "morning",     "evening",     "garden",
    "caf\xC3\xA9", "na\xC3\xAFve", "Gr\xC3\xB6\xC3\x9F" "e", "se\xC3\xB1or", "\xC3\xA5r",
    "\xC3\xA9t\xC3\xA9", "\xCE\xBB\xCF\x8C\xCE\xB3\xCE\xBF\xCF\x82",
    "\xD0\xBC\xD0\xB8\xD1\x80", "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E",
    "\xE2\x82\xAC" "42", "\xF0\x9F\x8C\xB2"};

// Escapes as the XML text must carry them, each standing for one word.
const char* const kEntityWords[] = {"&amp;", "&lt;b&gt;", "&quot;quoted&quot;", "it&apos;s",
                                    "&#233;t&#233;", "&#x2014;", "&#x1F600;", "5&#160;km"};

void AppendSentence(std::string& out, Rng& rng) {
  const size_t words = 6 + rng.Below(11);
  for (size_t i = 0; i < words; ++i) {
    if (i) out += ' ';
    const char* word = rng.OneIn(12) ? rng.Pick(kEntityWords) : rng.Pick(kWords);
    if (i == 0 && word[0] >= 'a' && word[0] <= 'z') {
      out += static_cast<char>(word[0] - 'a' + 'A');
      out += word + 1;
    } else {
      out += word;
    }
  }
  out += rng.OneIn(5) ? "; " : ". ";
}

void AppendTitle(std::string& out, Rng& rng) {
  const size_t words = 2 + rng.Below(4);
  for (size_t i = 0; i < words; ++i) {
    if (i) out += ' ';
    out += rng.Pick(kWords);
  }
}

// --- attributes -------------------------------------------------------------

const char* const kFirstNames[] = {"Ada", "Grace", "Alan", "Edsger", "Barbara", "Ken",
                                   "Dennis", "Frances", "John", "Margaret", "Niklaus"};
const char* const kLastNames[] = {"Lovelace", "Hopper", "Turing", "Dijkstra", "Liskov", "Thompson",
                                  "Ritchie", "Allen", "Backus", "Hamilton", "Wirth"};
const char* const kTypes[] = {"invoice", "order", "shipment", "refund", "quote"};
const char* const kStatuses[] = {"active", "closed", "pending", "archived"};
const char* const kNotes[] = {"none", "call back &amp; confirm", "see &quot;terms&quot;",
                              "r\xC3\xA9sum\xC3\xA9 attached", "net 30", "priority &lt; 2",
                              "ok"};

const std::vector<std::string> kRecordAttributes = {
    "id", "name", "type", "status", "created", "owner", "priority", "size", "checksum", "note"};

void AppendRecord(std::string& out, Rng& rng, size_t number) {
  out += "  <record id=\"r";
  AppendPadded(out, number, 7);
  out += "\" name=\"";
  out += rng.Pick(kFirstNames);
  out += ' ';
  out += rng.Pick(kLastNames);
  out += "\" type=\"";
  out += rng.Pick(kTypes);
  out += "\" status=\"";
  out += rng.Pick(kStatuses);
  out += "\" created=\"20";
  AppendPadded(out, 10 + rng.Below(15), 2);
  out += '-';
  AppendPadded(out, 1 + rng.Below(12), 2);
  out += '-';
  AppendPadded(out, 1 + rng.Below(28), 2);
  out += 'T';
  AppendPadded(out, rng.Below(24), 2);
  out += ':';
  AppendPadded(out, rng.Below(60), 2);
  out += ":00Z\" owner=\"";
  out += rng.Pick(kLastNames);
  out += "\" priority=\"";
  AppendNumber(out, 1 + rng.Below(5));
  out += "\" size=\"";
  AppendNumber(out, rng.Below(1000000));
  out += "\" checksum=\"";
  AppendHex(out, rng, 16);
  out += "\" note=\"";
  out += rng.Pick(kNotes);
  out += "\"/>\n";
}

// --- mixed ------------------------------------------------------------------

const char* const kCodeSnippets[] = {
    "if (a < b && c > d) { x = \"<tag>\"; }",
    "for (i = 0; i < n; ++i) sum += v[i];",
    "<config><value>42</value></config>",
    "return a & b | c ^ d;",
    "printf(\"%s & %d\\n\", s, n);"};

void AppendInline(std::string& out, Rng& rng) {
  switch (rng.Below(5)) {
    case 0:
      out += "<em>";
      out += rng.Pick(kWords);
      out += "</em>";
      break;
    case 1:
      out += "<code>a &lt; b &amp;&amp; c</code>";
      break;
    case 2:
      out += "<link href=\"#s";
      AppendNumber(out, rng.Below(500));
      out += "\">";
      out += rng.Pick(kWords);
      out += "</link>";
      break;
    case 3:
      out += "<![CDATA[";
      out += rng.Pick(kCodeSnippets);
      out += "]]>";
      break;
    default:
      out += "<b>";
      out += rng.Pick(kWords);
      out += ' ';
      out += rng.Pick(kWords);
      out += "</b>";
      break;
  }
}

void AppendMixedSection(std::string& out, Rng& rng, size_t number) {
  out += "  <!-- section ";
  AppendNumber(out, number);
  out += " -->\n  <section id=\"s";
  AppendNumber(out, number);
  out += "\">\n    <title>";
  AppendTitle(out, rng);
  out += "</title>\n";
  const size_t paragraphs = 2 + rng.Below(4);
  for (size_t p = 0; p < paragraphs; ++p) {
    out += "    <para>";
    const size_t pieces = 2 + rng.Below(4);
    for (size_t i = 0; i < pieces; ++i) {
      AppendSentence(out, rng);
      AppendInline(out, rng);
      out += ' ';
    }
    AppendSentence(out, rng);
    out += "</para>\n";
    if (rng.OneIn(3)) out += "    <!-- reviewed -->\n";
  }
  out += "    <listing><![CDATA[";
  out += rng.Pick(kCodeSnippets);
  out += "\n";
  out += rng.Pick(kCodeSnippets);
  out += "]]></listing>\n";
  out += "  </section>\n";
}

}  // namespace

const char* ShapeName(Shape shape) {
  switch (shape) {
    case Shape::kConfig:
      return "config";
    case Shape::kAttributes:
      return "attrs";
    case Shape::kText:
      return "text";
    case Shape::kMixed:
      return "mixed";
    case Shape::kWide:
      return "wide";
  }
  return "?";
}

std::string DocLabel(const DocSpec& spec) {
  return std::string(ShapeName(spec.shape)) + "/" + spec.sizeLabel;
}

std::string GenerateConfig(size_t targetBytes, uint64_t seed) {
  // The cost of a setting is only estimated, so the budget is corrected by
  // what each pass produced until the size lands within 3 percent.
  double budget = static_cast<double>(targetBytes);
  std::string text;
  for (int pass = 0; pass < 4; ++pass) {
    text = ConfigWriter(seed, kConfigLevels, 32).Document(budget);
    const double scale = static_cast<double>(targetBytes) / static_cast<double>(text.size());
    if (scale > 0.97 && scale < 1.03) break;
    budget *= scale;
  }
  return text;
}

std::string GeneratePathFixture(uint64_t seed) {
  // A budget far above need fills every level.
  return ConfigWriter(seed, 4, 32).Document(1e12);
}

std::string GenerateAttributes(size_t targetBytes, uint64_t seed) {
  Rng rng(seed);
  std::string out = kDeclaration;
  out += "<records>\n";
  for (size_t n = 1; out.size() + 12 < targetBytes; ++n) AppendRecord(out, rng, n);
  out += "</records>\n";
  return out;
}

std::string GenerateText(size_t targetBytes, uint64_t seed) {
  Rng rng(seed);
  std::string out = kDeclaration;
  out += "<book>\n";
  for (size_t chapter = 1; out.size() + 20 < targetBytes; ++chapter) {
    out += "  <chapter n=\"";
    AppendNumber(out, chapter);
    out += "\">\n    <title>";
    AppendTitle(out, rng);
    out += "</title>\n";
    const size_t paragraphs = 5 + rng.Below(11);
    for (size_t p = 0; p < paragraphs && out.size() + 20 < targetBytes; ++p) {
      out += "    <p>";
      const size_t sentences = 3 + rng.Below(6);
      for (size_t s = 0; s < sentences; ++s) AppendSentence(out, rng);
      out += "</p>\n";
    }
    out += "  </chapter>\n";
  }
  out += "</book>\n";
  return out;
}

std::string GenerateMixed(size_t targetBytes, uint64_t seed) {
  Rng rng(seed);
  std::string out = kDeclaration;
  out += "<article>\n";
  for (size_t n = 1; out.size() + 40 < targetBytes; ++n) AppendMixedSection(out, rng, n);
  out += "</article>\n";
  return out;
}

std::string GenerateWide(size_t children, uint64_t seed) {
  Rng rng(seed);
  std::string out = kDeclaration;
  out += "<list>\n";
  for (size_t i = 0; i < children; ++i) {
    out += "  <item>";
    AppendSettingValue(out, rng);
    out += "</item>\n";
  }
  out += "</list>\n";
  return out;
}

std::string Generate(const DocSpec& spec) {
  const uint64_t seed = 0x7EEC0DE0ull + static_cast<uint64_t>(spec.shape);
  switch (spec.shape) {
    case Shape::kConfig:
      return GenerateConfig(spec.size, seed);
    case Shape::kAttributes:
      return GenerateAttributes(spec.size, seed);
    case Shape::kText:
      return GenerateText(spec.size, seed);
    case Shape::kMixed:
      return GenerateMixed(spec.size, seed);
    case Shape::kWide:
      return GenerateWide(spec.size, seed);
  }
  return {};
}

const std::vector<std::string>& RecordAttributeNames() { return kRecordAttributes; }

const char* const kIdentityStylesheet =
    "<?xml version=\"1.0\"?>\n"
    "<xsl:stylesheet version=\"1.0\" xmlns:xsl=\"http://www.w3.org/1999/XSL/Transform\">\n"
    "  <xsl:template match=\"@*|node()\">\n"
    "    <xsl:copy><xsl:apply-templates select=\"@*|node()\"/></xsl:copy>\n"
    "  </xsl:template>\n"
    "</xsl:stylesheet>\n";

}  // namespace tkbench
