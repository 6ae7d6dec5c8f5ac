#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/host/skin_test_doubles.h"
#include "ui/skin/skin.h"

namespace calder {
namespace {

using test::CustomTags;
using test::ReadFile;
using test::RecordingWindow;
using test::RectText;

class SkinBuild : public testing::Test {
 protected:
  SkinBuild() { manager.Init(&window); }

  CControlUI* Build(const std::string& xml, IDialogBuilderCallback* hook = nullptr) {
    CDialogBuilder builder;
    CControlUI* root = builder.CreateFromXml(xml.data(), xml.size(), hook ? hook : &tags, &manager);
    error = builder.GetLastError();
    if (root != nullptr) manager.AttachDialog(root);
    return root;
  }

  RecordingWindow window;
  CPaintManagerUI manager;
  CustomTags tags;
  std::string error;
};

// The real skin from the zip resource at 1920x1200 and 150 %, worked by hand from the
// layout rules: spacers share what the fixed rows leave (the last one takes the odd
// pixel), fixed lengths scale by round(x * P / 100), the hidden countdown row takes no space.
TEST_F(SkinBuild, SkinDocumentFromTheZipResourceLaysOutTheProgressWindow) {
  const std::string zip = ReadFile(CALDER_SKIN_ZIP);
  ASSERT_EQ(CPaintManagerUI::SetResourceZip(zip.data(), zip.size()), ZipError::kNone);
  CDialogBuilder builder;
  CControlUI* root = builder.Create(L"skin.xml", L"", &tags, &manager);
  ASSERT_NE(root, nullptr) << builder.GetLastError();
  manager.AttachDialog(root);
  manager.SetDPI(144, UiRect{0, 0, 1920, 1200});
  manager.UpdateLayout(UiRect{0, 0, 1920, 1200});
  std::string places;
  for (const wchar_t* name : {L"lottieAnim", L"firmprogress", L"progressText", L"tip_big", L"info_one", L"info_threee"}) {
    places += RectText(manager.FindControl(name)->GetPos()) + " ";
  }
  EXPECT_EQ(places + std::to_string(manager.GetFontHeight(0)) + " " + std::to_string(manager.GetFontHeight(1)),
            "877,232,1042,397 415,547,1390,562 1390,547,1504,588 292,657,1627,737 292,806,1627,839 "
            "292,920,1627,953 60 30");
  EXPECT_FALSE(manager.FindControl(L"tip_daojis")->IsVisible());
  EXPECT_EQ(builder.Create(L"missing.xml", L"", &tags, &manager), nullptr);
  EXPECT_EQ(builder.GetLastError(), "missing.xml: entry not found");
  CPaintManagerUI::SetResourceZip(nullptr, 0);
  EXPECT_EQ(builder.Create(L"skin.xml", L"", &tags, &manager), nullptr);
  EXPECT_EQ(builder.GetLastError(), "no skin zip");
}

TEST_F(SkinBuild, UnknownTagsAreSkippedWithTheirChildren) {
  ASSERT_NE(Build("<Window><VerticalLayout><Mystery name='m'><Label name='inside'/></Mystery>"
                  "<firmprogressui name='lower'/><control name='a'/><Control name='b'/><LABEL name='c'/>"
                  "<verticallayout name='d'/><CircleProgress name='e'/><Label name='f'><Label name='under'/></Label>"
                  "</VerticalLayout></Window>"),
            nullptr) << error;
  EXPECT_EQ(tags.asked, (std::vector<std::string>{"Mystery", "firmprogressui", "CircleProgress"}));
  std::string classes;
  for (const wchar_t* name : {L"m", L"inside", L"lower", L"a", L"b", L"c", L"d", L"e", L"f", L"under"}) {
    CControlUI* c = manager.FindControl(name);
    classes += (c != nullptr ? WideToUtf8(c->GetClass()) : "-") + " ";
  }
  EXPECT_EQ(classes, "- - - ControlUI ControlUI LabelUI VerticalLayoutUI ProgressUI LabelUI - ");
}

// Notes whether the manager was attached as each attribute arrived.
class AttributeLog : public CControlUI {
 public:
  void SetAttribute(const wchar_t* name, const wchar_t* value) override {
    managed += GetManager() != nullptr ? "y" : "n";
    CControlUI::SetAttribute(name, value);
  }
  std::string managed;
};

TEST_F(SkinBuild, AttributesApplyInDocumentOrderWithTheManagerAttached) {
  struct Hook : IDialogBuilderCallback {
    CControlUI* CreateControl(const wchar_t*) override { return made = new AttributeLog(); }
    AttributeLog* made = nullptr;
  } hook;
  // pugixml keeps duplicate attributes, so both values arrive in order: the last wins.
  ASSERT_NE(Build("<Window><HorizontalLayout><Logged width='10' width='30'/></HorizontalLayout></Window>",
                  &hook), nullptr) << error;
  EXPECT_EQ(hook.made->managed, "yy");
  EXPECT_EQ(hook.made->GetFixedWidth(), 30);
}

TEST_F(SkinBuild, BadDocumentsAreRejectedWithAReason) {
  const std::pair<std::string, std::string> cases[] = {
      {"", "bad XML: No document element found at offset 0"},
      {"<Window><VerticalLayout></Window>", "bad XML: Start-end tags mismatch at offset 26"},
      {"<Skin><VerticalLayout/></Skin>", "root element is not Window"},
      {"<Window><Font id='0' name='x' size='9'/></Window>", "skin has no control"},
      {"<Window><Mystery/></Window>", "skin has no control"},
  };
  for (const auto& [xml, reason] : cases) {
    EXPECT_EQ(Build(xml), nullptr) << xml;
    EXPECT_EQ(error, reason) << xml;
  }
  std::string open, close;  // 128 levels
  for (int i = 0; i < 128; ++i) open += "<VerticalLayout>", close += "</VerticalLayout>";
  EXPECT_NE(Build("<Window>" + open + close + "</Window>"), nullptr);
  EXPECT_EQ(Build("<Window><VerticalLayout>" + open + close + "</VerticalLayout></Window>"), nullptr);
  EXPECT_EQ(error, "skin nests deeper than 128 levels");
}

TEST_F(SkinBuild, FontsWindowSizeAndDefaultFont) {
  ASSERT_NE(Build("<Window size='800,600'><Font id='3' name='A' size='12' bold='true'/>"
                  "<Font id='4' name='B' size='14' default='true'/><control/></Window>"), nullptr);
  EXPECT_EQ(manager.GetInitSize().cx, 800);
  EXPECT_EQ(manager.GetInitSize().cy, 600);
  EXPECT_TRUE(manager.GetFont(3)->bold);
  EXPECT_EQ(manager.GetFont(-1)->face, L"B");
  EXPECT_EQ(manager.GetFont(99)->face, L"B");
}

}  // namespace
}  // namespace calder
