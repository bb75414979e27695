#include "core/LanguageTable.h"
#include "support/TestDocument.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using test::TestDocument;

class CountingListener : public MaterialListener {
public:
    void materialsChanged(const ZmapDocument&) override { ++calls; }
    int calls = 0;
};

TEST(MaterialTable, AddingATakenNameNumbersIt) {
    TestDocument doc;
    CountingListener listener;
    doc.setMaterialListener(&listener);
    EXPECT_EQ(doc.addMaterial(L"Wall", ColourPOD{1, 1, 1}, false), 1);
    EXPECT_EQ(doc.addMaterial(L"Wall", ColourPOD{2, 2, 2}, false), 2);
    EXPECT_EQ(doc.addMaterial(L"wall", ColourPOD{3, 3, 3}, false), 3); // names ignore case
    EXPECT_EQ(doc.materialName(1), L"Wall");
    EXPECT_EQ(doc.materialName(2), L"Wall 1");
    EXPECT_EQ(doc.materialName(3), L"wall 2");
    // An implicit material isn't renumbered.
    EXPECT_EQ(doc.addMaterial(L"Wall", ColourPOD{4, 4, 4}, true), 4);
    EXPECT_EQ(doc.materialName(4), L"Wall");
    EXPECT_EQ(listener.calls, 4);
    EXPECT_EQ(doc.usedMaterials(), (std::set<MaterialId>{1, 2, 3}));

    // Ids: the lowest free one is taken again.
    ASSERT_TRUE(doc.deleteMaterial(2));
    EXPECT_EQ(doc.addMaterial(L"Floor", ColourPOD{}, false), 2);
    EXPECT_EQ(doc.lastMaterialId(), 4);
}

TEST(MaterialTable, DeletedMaterialWithUsersKeepsItsId) {
    TestDocument doc;
    const MaterialId glass = doc.addMaterial(L"Glass", ColourPOD{9, 8, 7}, false);
    ASSERT_TRUE(doc.changeMaterialUsers(glass, 2));
    ASSERT_TRUE(doc.deleteMaterial(glass));
    EXPECT_FALSE(doc.materialExists(glass));
    EXPECT_TRUE(doc.materialDeleted(glass));
    EXPECT_EQ(doc.materialIdOf(L"Glass"), 0);                   // hidden
    EXPECT_EQ(doc.materialColour(glass), (ColourPOD{9, 8, 7})); // pixels still show it
    EXPECT_EQ(doc.usedMaterials().count(glass), 0u);
    // Its id isn't free, but its name is.
    const MaterialId next = doc.addMaterial(L"Glass", ColourPOD{}, false);
    EXPECT_NE(next, glass);
    EXPECT_EQ(doc.materialName(next), L"Glass");

    // When the last user goes, the record goes.
    ASSERT_TRUE(doc.changeMaterialUsers(glass, -2));
    EXPECT_EQ(doc.material(glass), nullptr);
    EXPECT_EQ(doc.materialColour(glass), ColourPOD{});
    EXPECT_FALSE(doc.deleteMaterial(999));

    // Without users a delete erases at once.
    ASSERT_TRUE(doc.deleteMaterial(next));
    EXPECT_EQ(doc.material(next), nullptr);
}

TEST(MaterialTable, PaletteAndRecordsStayInStep) {
    TestDocument doc;
    ASSERT_TRUE(doc.setMaterial(200, L"Low", ColourPOD{1, 2, 3}, false));
    ASSERT_TRUE(doc.setMaterial(300, L"High", ColourPOD{4, 5, 6}, false));
    EXPECT_EQ(doc.materialColour(200), (ColourPOD{1, 2, 3}));
    EXPECT_EQ(doc.palette()[200], (ColourPOD{1, 2, 3}));
    EXPECT_EQ(doc.materialColour(300), (ColourPOD{4, 5, 6}));

    ASSERT_TRUE(doc.renameMaterial(200, L"Lower", ColourPOD{7, 7, 7}));
    ASSERT_TRUE(doc.renameMaterial(300, L"Higher", ColourPOD{8, 8, 8}));
    EXPECT_EQ(doc.materialColour(200), (ColourPOD{7, 7, 7}));
    EXPECT_EQ(doc.palette()[200], (ColourPOD{7, 7, 7}));
    EXPECT_EQ(doc.material(200)->colour, (ColourPOD{7, 7, 7}));
    EXPECT_EQ(doc.materialColour(300), (ColourPOD{8, 8, 8}));
    EXPECT_EQ(doc.materialName(300), L"Higher");
    EXPECT_FALSE(doc.renameMaterial(5, L"None", ColourPOD{}));

    // Unknown ids: empty name, black, an empty hot link.
    EXPECT_EQ(doc.materialName(77), L"");
    EXPECT_EQ(doc.materialColour(77), ColourPOD{});
    EXPECT_EQ(doc.materialColour(7777), ColourPOD{});
    EXPECT_TRUE(doc.materialHotLink(77).empty());
}

TEST(MaterialTable, ImplicitRecordsGiveWayToExplicitOnes) {
    struct Case {
        const char* what;
        bool firstImplicit, secondImplicit, accepted;
    };
    const Case cases[] = {{"explicit over explicit", false, false, true},
                          {"explicit over implicit", true, false, true},
                          {"implicit over implicit", true, true, true},
                          {"implicit over explicit", false, true, false}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        TestDocument doc;
        ASSERT_TRUE(doc.setMaterial(5, L"First", ColourPOD{1, 1, 1}, c.firstImplicit, L"model"));
        EXPECT_EQ(doc.setMaterial(5, L"Second", ColourPOD{2, 2, 2}, c.secondImplicit), c.accepted);
        EXPECT_EQ(doc.materialName(5), c.accepted ? L"Second" : L"First");
        EXPECT_EQ(doc.palette()[5], c.accepted ? (ColourPOD{2, 2, 2}) : (ColourPOD{1, 1, 1}));
        EXPECT_EQ(doc.usedMaterials().count(5), !c.firstImplicit || !c.secondImplicit ? 1u : 0u);
    }
    TestDocument doc;
    EXPECT_FALSE(doc.setMaterial(0, L"Nothing", ColourPOD{}, false));
}

TEST(MaterialTable, WildCardsMatchWithoutCase) {
    TestDocument doc;
    doc.addMaterial(L"Brick Wall", ColourPOD{}, false); // 1
    doc.addMaterial(L"Glass", ColourPOD{}, false);      // 2
    doc.addMaterial(L"Wall Paper", ColourPOD{}, false); // 3
    doc.addMaterial(L"wall", ColourPOD{}, false);       // 4
    struct Case {
        const wchar_t* pattern;
        MaterialId excluding;
        std::vector<MaterialId> ids;
    };
    const Case cases[] = {{L"*wall*", 0, {1, 3, 4}}, {L"WALL", 0, {4}}, {L"w?ll*", 0, {3, 4}},
                          {L"*wall*", 3, {1, 4}},    {L"stone", 0, {}}, {L"*", 0, {1, 2, 3, 4}}};
    for (const Case& c : cases) {
        std::vector<MaterialId> ids{99};
        EXPECT_EQ(doc.matchMaterials(ids, c.pattern, c.excluding), !c.ids.empty()) << c.pattern;
        EXPECT_EQ(ids, c.ids) << c.pattern;
    }
    EXPECT_EQ(doc.materialIdOf(L"GLASS"), 2);
    EXPECT_EQ(doc.materialIdOf(L"glass", 2), 0);
}

TEST(MaterialTable, NamesAreMadeUniqueAfterReading) {
    TestDocument doc;
    // As a file may give them: equal names under several ids.
    doc.setMaterial(1, L"Wall", ColourPOD{}, false);
    doc.setMaterial(2, L"Floor", ColourPOD{}, false);
    doc.setMaterial(3, L"WALL", ColourPOD{}, false);
    doc.setMaterial(4, L"Wall 1", ColourPOD{}, false);
    doc.setMaterial(5, L"Floor", ColourPOD{}, false);
    doc.setMaterial(6, L"Roof", ColourPOD{}, false);
    ASSERT_TRUE(doc.setHotLink(2, MatHotLink{L"Library", L"Parquet", 1}));
    doc.makeMaterialNamesUnique();
    // Without a hot link every member of a group is renamed, taking the first free name.
    EXPECT_EQ(doc.materialName(1), L"Wall 2");
    EXPECT_EQ(doc.materialName(3), L"WALL 3");
    EXPECT_EQ(doc.materialName(4), L"Wall 1");
    // The first Floor has a hot link and keeps its name.
    EXPECT_EQ(doc.materialName(2), L"Floor");
    EXPECT_EQ(doc.materialName(5), L"Floor 1");
    EXPECT_EQ(doc.materialName(6), L"Roof");
    EXPECT_EQ(doc.materialHotLink(2).style, L"Parquet");
}

TEST(MaterialTable, UniqueNamesUseTheLanguageFormat) {
    LanguageTable table;
    ASSERT_EQ(table.parse("10131\t%ls (%d)\n"), status::ok);
    TQL::setStringTable(&table);
    TestDocument doc;
    doc.setMaterial(1, L"Door", ColourPOD{}, false);
    doc.setMaterial(2, L"Door", ColourPOD{}, false);
    doc.makeMaterialNamesUnique();
    EXPECT_EQ(doc.materialName(1), L"Door (1)");
    EXPECT_EQ(doc.materialName(2), L"Door (2)");

    // A format that doesn't take a name and a number falls back to the built-in one.
    ASSERT_EQ(table.parse("10131\t%d %ls\n"), status::ok);
    doc.setMaterial(3, L"Door (1)", ColourPOD{}, false);
    doc.makeMaterialNamesUnique();
    EXPECT_EQ(doc.materialName(1), L"Door (1) 1");
    TQL::setStringTable(nullptr);
}

} // namespace
