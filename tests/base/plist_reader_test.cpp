#include "base/plist_reader.h"

#include <cstdint>

#include "test_support.h"

namespace bwk {

void PrintTo(const PlistValue& v, std::ostream* os) { *os << v.description(); }

namespace {

using test::TempDir;

// One case of a reader table: `errorPart` null means the input must parse to `expected`.
struct ReadCase {
  const char* name;
  std::string input;
  const char* errorPart;
  PlistValue expected = PlistValue();
};

// Each case read by `read`: the value expected, or an error holding `errorPart`.
template <size_t N, typename Reader>
void expectOutcomes(const ReadCase (&cases)[N], Reader read) {
  for (const ReadCase& c : cases) {
    std::string error;
    std::optional<PlistValue> value = read(c.input, &error);
    EXPECT_EQ(value, c.errorPart ? std::nullopt : std::optional(c.expected)) << c.name << ": " << error;
    EXPECT_TRUE(!c.errorPart || text::contains(error, c.errorPart)) << c.name << ": " << error;
  }
}

TEST(PropertyListReader, ChoosesTheFormatByContentAndReadsXml) {
  const std::string plist = "<plist version=\"1.0\"><dict><key>a</key><string>b</string></dict></plist>";
  const PlistValue ab = PlistDict{{"a", "b"}};
  const ReadCase cases[] = {
      {"xml declaration after blanks", "  \n\t<?xml version=\"1.0\"?>" + plist, nullptr, ab},
      {"xml after a UTF-8 byte-order mark", "\xEF\xBB\xBF" + plist, nullptr, ab},
      {"doctype first", "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"x.dtd\">" + plist, nullptr, ab},
      {"text dictionary", "{ a = b; }", nullptr, ab},
      {"strings table", "\"a\" = \"b\";", nullptr, ab},
      {"broken xml is reported as xml", "\n<plist><dict><key>a</key></plist>",
       "XML property list: Start-end tags mismatch at line 2"},
      {"bplist magic goes to the binary reader", "bplist00 but nothing else", "binary property list:"},
      {"anything else is text", "{ a = ", "text property list:"},
      {"empty input", "", "property list: empty input"},
  };
  expectOutcomes(cases, readPropertyList);
  const ReadCase xml[] = {
      // input: inside <plist>
      {"duplicate key: last wins", "<dict><key>k</key><string>1</string><key>k</key><string>2</string></dict>", nullptr,
       PlistDict{{"k", "2"}}},
      {"entities and cdata", "<string>&lt;&amp;&#x41;&#66;<![CDATA[<raw>]]></string>", nullptr, "<&AB<raw>"},
      {"integer with blanks and sign", "<integer> +17 </integer>", nullptr, 17},
      {"hex integer", "<integer>0x1F</integer>", nullptr, 31},
      {"negative hex integer", "<integer>-0x10</integer>", nullptr, -16},
      {"integer with text after it", "<integer>12x</integer>", "<integer>"},
      {"date without time", "<date>2001-01-02</date>", nullptr, PlistDate{86400}},
      {"date and time", "<date>2001-01-01T01:02:03Z</date>", nullptr, PlistDate{3723}},
      {"real from nine", "<real>9.5</real>", nullptr, 9.5},
      {"real with an exponent", "<real>0.1e4</real>", nullptr, 1000.0},
      {"leap day", "<date>2000-02-29T00:00:00Z</date>", nullptr, PlistDate{-26524800}},
      {"first of March", "<date>2000-03-01T00:00:00Z</date>", nullptr, PlistDate{-26438400}},
      {"last second of a year", "<date>2001-12-31T23:59:60Z</date>", nullptr, PlistDate{31536000}},
      {"largest integer", "<integer>9223372036854775807</integer>", nullptr, int64_t{INT64_MAX}},
      {"smallest integer", "<integer>-9223372036854775808</integer>", nullptr, int64_t{INT64_MIN}},
      {"base64 over lines", "<data>\n  AAEC\n  /w==\n</data>", nullptr, PlistData{{0, 1, 2, 255}}},
      {"base64 of every range", "<data>AZaz09+/</data>", nullptr, PlistData{{0x01, 0x96, 0xb3, 0xd3, 0xdf, 0xbf}}},
      {"empty dict element", "<dict/>", nullptr, PlistDict{}},
      {"key without value", "<dict><key>a</key></dict>", "without a value"},
      {"value without key", "<dict><string>a</string></dict>", "where a <key> belongs"},
      {"unknown element", "<dict><key>a</key><number>1</number></dict>", "unknown element <number>"},
      {"key outside dict", "<array><key>a</key></array>", "outside a <dict>"},
      {"empty integer", "<integer></integer>", "<integer>"},
      {"integer overflow", "<integer>9223372036854775808</integer>", "out-of-range"},
      {"integer past 64 bits", "<integer>99999999999999999999</integer>", "<integer>"},
      {"hour 24", "<date>2001-01-01T24:00:00Z</date>", "<date>"},
      {"bad real", "<real>1.5x</real>", "<real>"},
      {"hexadecimal real", "<real>0X1p3</real>", "<real>"},
      {"real with a second sign", "<real>+-5</real>", "<real>"},
      {"bad date", "<date>2001-13-01T00:00:00Z</date>", "<date>"},
      {"day 32", "<date>2001-01-32T00:00:00Z</date>", "<date>"},
      {"date without an hour", "<date>2001-01-01T:00:00Z</date>", "<date>"},
      {"date without a colon", "<date>2001-01-01T0102:03Z</date>", "<date>"},
      {"date with text after it", "<date>2001-01-01T01:02:03X</date>", "<date>"},
      {"bad base64", "<data>AA*B</data>", "base64"},
      {"base64 after padding", "<data>AA==AA</data>", "base64"},
      {"element inside string", "<string>a<b/></string>", "inside <string>"},
      {"text between entries", "<dict>stray<key>a</key><true/></dict>", "unexpected text"},
      {"content in true, not blanks", "<array><true> </true>\n<true>yes</true></array>", "must be empty at line 3"},
      {"two top values", "<string>a</string><string>b</string>", "more than one value"},
      {"empty plist", "", "empty <plist>"},
      {"syntax errors carry the line", "<dict>\n<key>a</key>\n<string>b</strin>\n</dict>", "at line 4"},
  };
  expectOutcomes(xml, [](const std::string& input, std::string* error) {
    return readXmlPropertyList("<?xml version=\"1.0\"?>\n<plist>" + input + "</plist>\n", error);
  });
}

void putBigEndian(std::string& out, uint64_t v, size_t width) {
  for (size_t i = width; i-- > 0;) out += static_cast<char>((v >> (8 * i)) & 0xFF);
}

// A binary property list around raw object encodings (object i is objects[i]).
std::string binaryPlist(const std::vector<std::string>& objects, uint64_t top = 0, uint8_t refSize = 1,
                        uint8_t offsetSize = 0) {
  std::string out = "bplist00";
  std::vector<uint64_t> offsets;
  for (const std::string& o : objects) {
    offsets.push_back(out.size());
    out += o;
  }
  if (!offsetSize) offsetSize = out.size() < 0x100 ? 1 : out.size() < 0x10000 ? 2 : 4;  // the smallest that fits
  uint64_t table = out.size();
  for (uint64_t off : offsets) putBigEndian(out, off, offsetSize);
  out += std::string(6, '\0');
  out += static_cast<char>(offsetSize);
  out += static_cast<char>(refSize);
  putBigEndian(out, objects.size(), 8);
  putBigEndian(out, top, 8);
  putBigEndian(out, table, 8);
  return out;
}

std::string bytes(std::initializer_list<int> list) {
  std::string s;
  for (int b : list) s += static_cast<char>(b);
  return s;
}

std::string patchTrailer(std::string plist, size_t field, uint64_t value, size_t width) {
  std::string encoded;
  putBigEndian(encoded, value, width);
  plist.replace(plist.size() - 32 + field, width, encoded);
  return plist;
}

TEST(BinaryPropertyList, HandBuiltObjects) {
  const std::string oneInt = binaryPlist({bytes({0x10, 0x07})});
  const ReadCase cases[] = {
      {"float32 real", binaryPlist({bytes({0x22, 0x40, 0x48, 0x00, 0x00})}), nullptr, 3.125},
      {"16-byte integers", binaryPlist({bytes({0xA2, 1, 2}), bytes({0x14}) + std::string(15, '\xFF') + "\xFE",
                                        bytes({0x14}) + std::string(15, '\0') + "\x05"}), nullptr, PlistArray{-2, 5}},
      {"8-byte negative integer", binaryPlist({bytes({0x13, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE})}), nullptr, -2},
      {"data ending at the offset table", binaryPlist({bytes({0x4A}) + "0123456789"}), nullptr,
       PlistData{{'0', '1', '2', '3', '4', '5', '6', '7', '8', '9'}}},
      {"uid as its number", binaryPlist({bytes({0x81, 0x01, 0x02})}), nullptr, 258},
      {"uid of 8 bytes", binaryPlist({bytes({0x87, 0, 0, 0, 0, 0, 0, 0x01, 0x02})}), nullptr, 258},
      {"uid of 9 bytes", binaryPlist({bytes({0x88, 0, 0, 0, 0, 0, 0, 0, 0x01, 0x02})}), "bad uid size"},
      {"set as array", binaryPlist({bytes({0xC1, 0x01}), bytes({0x09})}), nullptr, PlistArray{true}},
      {"empty string ending at the offset table", binaryPlist({bytes({0x50})}), nullptr, ""},
      {"offsets of 8 bytes", binaryPlist({bytes({0x10, 0x07})}, 0, 1, 8), nullptr, 7},
      {"references of 8 bytes", binaryPlist({bytes({0xA1, 0, 0, 0, 0, 0, 0, 0, 1}), bytes({0x09})}, 0, 8), nullptr, PlistArray{true}},
      {"lone surrogate in UTF-16", binaryPlist({bytes({0x61, 0xD8, 0x00})}), nullptr, "\xEF\xBF\xBD"},
      {"high bytes of an ASCII string as Latin-1", binaryPlist({bytes({0x51, 0xE9})}), nullptr, "é"},
      {"duplicate dictionary key: last wins",
       binaryPlist({bytes({0xD2, 0x01, 0x01, 0x02, 0x03}), bytes({0x51, 'k'}), bytes({0x10, 1}), bytes({0x10, 2})}), nullptr,
       PlistDict{{"k", 2}}},
      {"array containing itself", binaryPlist({bytes({0xA1, 0x00})}), "contains itself"},
      {"key that is no string", binaryPlist({bytes({0xD1, 0x01, 0x01}), bytes({0x10, 0x05})}), "key is not a string"},
      {"reference past the objects", binaryPlist({bytes({0xA1, 0x05})}), "out of range"},
      {"reference to the object count", binaryPlist({bytes({0xA1, 0x01})}), "object reference 1 out of range"},
      {"array longer than the data", binaryPlist({bytes({0xAF, 0x10, 0xFF})}), "runs past"},
      {"length that is no integer", binaryPlist({bytes({0xAF, 0x50})}), "bad length marker"},
      {"length of 16 bytes", binaryPlist({bytes({0xAF, 0x14})}), "bad length marker"},
      {"8-byte length near 2^64", binaryPlist({bytes({0x4F, 0x13, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF})}), "runs past"},
      {"UTF-16 length overflowing when doubled",
       binaryPlist({bytes({0x6F, 0x13, 0x80, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01})}), "runs past"},
      {"integer cut by the offset table", binaryPlist({bytes({0x13, 0x01, 0x02})}), "past the end"},
      {"integer beyond 16 bytes", binaryPlist({bytes({0x15, 0x00})}), "bad integer size"},
      {"2^63 in 16 bytes", binaryPlist({bytes({0x14, 0, 0, 0, 0, 0, 0, 0, 0, 0x80, 0, 0, 0, 0, 0, 0, 0})}), "does not fit"},
      {"real of 2 bytes", binaryPlist({bytes({0x21, 0x00, 0x00})}), "bad real size"},
      {"unknown marker", binaryPlist({bytes({0xF0})}), "unsupported"},
      {"offset size 0", patchTrailer(oneInt, 6, 0, 1), "bad offset size"},
      {"reference size 9", patchTrailer(oneInt, 7, 9, 1), "bad object reference size"},
      {"no objects", patchTrailer(oneInt, 8, 0, 8), "no objects"},
      {"object count beyond the file", patchTrailer(oneInt, 8, ~uint64_t{0}, 8), "offset table"},
      {"top object beyond the count", patchTrailer(oneInt, 16, 1, 8), "top object"},
      {"offset table past the trailer", patchTrailer(oneInt, 24, 1000, 8), "offset table"},
      {"offset table at the trailer", patchTrailer(oneInt, 24, oneInt.size() - 32, 8), "runs past the trailer"},
      {"object offset into the header", [&] { std::string p = oneInt; p[10] = 2; return p; }(), "object offset"},
      {"object offset at the offset table", [&] { std::string p = oneInt; p[10] = 10; return p; }(), "object offset"},
      {"too short", "bplist00" + std::string(32, '\0'), "too short"},
      {"one 64 KiB string 5000 times: 320 MiB from 70 KiB",
       [] {
         std::string string = bytes({0x5F, 0x12}), array = bytes({0xAF, 0x11});
         putBigEndian(string, 65536, 4);
         putBigEndian(array, 5000, 2);
         return binaryPlist({array + std::string(5000, '\x01'), string + std::string(65536, 'a')});
       }(),
       "too much data"},
      {"file cut short", [] { std::string p = binaryPlist({"\x5F\x10\x28" + std::string(40, 'x')}); return p.substr(0, p.size() - 1); }(),
       "bad offset size"},
  };
  expectOutcomes(cases, readBinaryPropertyList);
  // Each array holds the next one twice: 2^60 paths, 61 objects. Shared objects are read once.
  std::vector<std::string> objects;
  for (int i = 0; i < 60; ++i) objects.push_back(bytes({0xA2, i + 1, i + 1}));
  objects.push_back(bytes({0x10, 0x2A}));
  std::optional<PlistValue> value = readBinaryPropertyList(binaryPlist(objects), nullptr);
  ASSERT_TRUE(value);
  const PlistValue* v = &*value;
  for (int depth = 0; depth < 60; ++depth) {
    ASSERT_TRUE(v->asArray() && v->asArray()->size() == 2) << depth;
    v = &v->asArray()->front();
  }
  EXPECT_EQ(*v, PlistValue(42));
  // 512 objects may be open at once: arrays inside arrays down to a number.
  auto nested = [](int count) {
    std::vector<std::string> chain;
    for (int i = 1; i < count; ++i) chain.push_back(bytes({0xA1, i >> 8, i & 0xFF}));
    chain.push_back(bytes({0x10, 0x2A}));
    return binaryPlist(chain, 0, 2);
  };
  std::string error;
  EXPECT_TRUE(readBinaryPropertyList(nested(512), &error)) << error;
  EXPECT_FALSE(readBinaryPropertyList(nested(513), &error));
  EXPECT_TRUE(text::contains(error, "nesting too deep")) << error;
}

std::string utf16File(const std::u16string& text, bool bigEndian) {
  std::string out = bigEndian ? "\xFE\xFF" : "\xFF\xFE";
  for (char16_t u : text) {
    char hi = static_cast<char>(u >> 8), lo = static_cast<char>(u & 0xFF);
    out += bigEndian ? hi : lo;
    out += bigEndian ? lo : hi;
  }
  return out;
}

TEST(TextPropertyList, HandWrittenFileEveryEncodingAndShortInputs) {
  const char* source = R"(// a line comment
{
  name = "Tool";            /* a block
                               comment */
  unquoted = some_path/to:file.txt-1+$;
  number = 42;              // stays a string
  escapes = "tab\there\nq\"b\\s \U00e9\U00C9 \101\60 \UD83D\UDE00 \'";
  single = 'single "quoted"';
  list = ( a, "b c", (nested), {}, );
  empty = ();
  data = <0001 02ff FE>;
  dict = { inner = value; "with space" = "x"; };
  dup = first;
  dup = second;
  "Grüße" = "日本";
}
)";
  PlistDict written{
      {"name", "Tool"},
      {"unquoted", "some_path/to:file.txt-1+$"},
      {"number", "42"},
      {"escapes", "tab\there\nq\"b\\s éÉ A0 \xF0\x9F\x98\x80 '"},
      {"single", "single \"quoted\""},
      {"list", PlistArray{"a", "b c", PlistArray{"nested"}, PlistDict{}}},
      {"empty", PlistArray{}},
      {"data", PlistData{{0x00, 0x01, 0x02, 0xFF, 0xFE}}},
      {"dict", PlistDict{{"inner", "value"}, {"with space", "x"}}},
      {"dup", "second"},
      {"Grüße", "日本"},
  };
  std::string problem;
  EXPECT_EQ(readTextPropertyList(source, &problem), std::optional(PlistValue(written))) << problem;
  // Byte-order marks choose the encoding, for tables and XML alike.
  const std::u16string table =
      u"/* Localizable */\n\"greeting\" = \"Grüße 日本 😀\";\nkey = \"value\";\n\"shorthand\";\n";
  const PlistValue expected =
      PlistDict{{"greeting", "Grüße 日本 \xF0\x9F\x98\x80"}, {"key", "value"}, {"shorthand", "shorthand"}};
  const std::u16string xml =
      u"<?xml version=\"1.0\" encoding=\"UTF-16\"?><plist><dict><key>greeting</key><string>Grüße 日本 😀</string>"
      u"<key>key</key><string>value</string><key>shorthand</key><string>shorthand</string></dict></plist>";
  TempDir dir;
  const std::pair<const char*, std::string> files[] = {
      {"utf-16 le", utf16File(table, false)},
      {"xml in utf-16 be", utf16File(xml, true)},
      {"utf-8 with mark",
       "\xEF\xBB\xBF/* x */ \"greeting\" = \"Grüße 日本 \xF0\x9F\x98\x80\"; key =\fvalue;\vshorthand;"},
  };
  for (const auto& [name, bytes] : files) {
    test::writeFile(dir / "Localizable.strings", bytes);
    std::string error;
    EXPECT_EQ(readPropertyListFile(dir / "Localizable.strings", &error), std::optional(expected)) << name << error;
  }
  const ReadCase cases[] = {
      {"nothing", "", nullptr, PlistDict{}},
      {"invalid UTF-8 is read as Latin-1", "k = \"caf\xE9\";", nullptr, PlistDict{{"k", "café"}}},
      {"a lone continuation byte", "k = \"\x80\";", nullptr, PlistDict{{"k", "\xC2\x80"}}},
      {"\\xFE second is no byte-order mark", "\"\xFE\" = x;", nullptr, PlistDict{{"þ", "x"}}},
      {"open quote", "{ a = \"open; }", "unterminated quoted string"},
      {"no semicolon", "{ a = b }", "missing ';'"},
      {"no brace", "{ a = b;", "missing '}'"},
      {"no equals", "{ a b; }", "expected '='"},
      {"no comma", "( a b )", "expected ','"},
      {"open array", "( a, ", "unexpected end"},
      {"open comment", "/* open", "unterminated comment"},
      {"bad data digit", "{ a = <0g>; }", "bad character in <data>"},
      {"odd data digits", "{ a = <010>; }", "odd number"},
      {"open data", "{ a = <01", "unterminated <data>"},
      {"no key", "{ = b; }", "unexpected '='"},
      {"trailing text", "{ a = b; } extra", "after the value"},
      {"strings table without semicolon", "\"k\" = \"v\"", "missing ';'"},
      {"\\U without digits", "\"k\" = \"v\\U\";", "without hexadecimal"},
      {"surrogate pair", "\"k\" = \"\\UD800\\UDFFF\";", nullptr, PlistDict{{"k", "\xF0\x90\x8F\xBF"}}},
      {"surrogate pairs at the ends of the ranges", R"("k" = "\UD800\UDC00 \UDBFF\UDFFF";)", nullptr,
       PlistDict{{"k", "\xF0\x90\x80\x80 \xF4\x8F\xBF\xBF"}}},
      {"octal escapes", R"("k" = "\0\7\077\70";)", nullptr, PlistDict{{"k", std::string("\0\a?8", 4)}}},
      {"unquoted words and hexadecimal digits", "{ AZaz09_$ = <09afAF>; }", nullptr,
       PlistDict{{"AZaz09_$", PlistData{{0x09, 0xaf, 0xaf}}}}},
      {"lone low surrogate, a digit after it", "\"k\" = \"\\UDFFF0\";", nullptr, PlistDict{{"k", "\uFFFD0"}}},
      {"errors carry the line", "{ a = b;\n  c d; }", "line 2"},
      {"deep nesting", std::string(100000, '('), "nesting too deep"},
  };
  expectOutcomes(cases, readTextPropertyList);
}

}  // namespace
}  // namespace bwk
