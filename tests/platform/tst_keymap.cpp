#include "platform/KeyMap.h"

#include <QTest>

#include <set>
#include <xkbcommon/xkbcommon-keysyms.h>

class TestKeyMap : public QObject {
    Q_OBJECT

private slots:
    void tableIsConsistent()
    {
        std::set<quint32> codes;
        std::set<int> qtKeys;
        std::set<quint32> keysyms;
        int named = 0;
        for (const KeyMap::Key& key : KeyMap::keys()) {
            QVERIFY2(codes.insert(key.keyCode).second, key.name);
            QVERIFY2(qtKeys.insert(key.qtKey).second, key.name);
            QVERIFY2(keysyms.insert(key.keysym).second, key.name);
            QVERIFY(key.keyCode != KeyMap::unknownKeyCode);
            named += key.hasDisplayName ? 1 : 0;
        }
        // The letters, the digits, Return, Tab and Space.
        QCOMPARE(named, 39);
    }

    void qtRoundTrip_data()
    {
        QTest::addColumn<int>("qtKey");
        QTest::addColumn<quint32>("keyCode");
        QTest::addColumn<quint32>("keysym");
        QTest::newRow("A") << int(Qt::Key_A) << 0u << quint32(XKB_KEY_a);
        QTest::newRow("C") << int(Qt::Key_C) << 8u << quint32(XKB_KEY_c);
        QTest::newRow("B") << int(Qt::Key_B) << 11u << quint32(XKB_KEY_b);
        QTest::newRow("K") << int(Qt::Key_K) << 40u << quint32(XKB_KEY_k);
        QTest::newRow("M") << int(Qt::Key_M) << 46u << quint32(XKB_KEY_m);
        QTest::newRow("1") << int(Qt::Key_1) << 18u << quint32(XKB_KEY_1);
        QTest::newRow("5") << int(Qt::Key_5) << 23u << quint32(XKB_KEY_5);
        QTest::newRow("6") << int(Qt::Key_6) << 22u << quint32(XKB_KEY_6);
        QTest::newRow("0") << int(Qt::Key_0) << 29u << quint32(XKB_KEY_0);
        QTest::newRow("Return") << int(Qt::Key_Return) << 36u << quint32(XKB_KEY_Return);
        QTest::newRow("Tab") << int(Qt::Key_Tab) << 48u << quint32(XKB_KEY_Tab);
        QTest::newRow("Space") << int(Qt::Key_Space) << 49u << quint32(XKB_KEY_space);
        QTest::newRow("Escape") << int(Qt::Key_Escape) << 53u << quint32(XKB_KEY_Escape);
        QTest::newRow("Backspace") << int(Qt::Key_Backspace) << 51u << quint32(XKB_KEY_BackSpace);
        QTest::newRow("Delete") << int(Qt::Key_Delete) << 117u << quint32(XKB_KEY_Delete);
        QTest::newRow("Home") << int(Qt::Key_Home) << 115u << quint32(XKB_KEY_Home);
        QTest::newRow("End") << int(Qt::Key_End) << 119u << quint32(XKB_KEY_End);
        QTest::newRow("Page Up") << int(Qt::Key_PageUp) << 116u << quint32(XKB_KEY_Prior);
        QTest::newRow("Page Down") << int(Qt::Key_PageDown) << 121u << quint32(XKB_KEY_Next);
        QTest::newRow("Left") << int(Qt::Key_Left) << 123u << quint32(XKB_KEY_Left);
        QTest::newRow("Right") << int(Qt::Key_Right) << 124u << quint32(XKB_KEY_Right);
        QTest::newRow("Down") << int(Qt::Key_Down) << 125u << quint32(XKB_KEY_Down);
        QTest::newRow("Up") << int(Qt::Key_Up) << 126u << quint32(XKB_KEY_Up);
        QTest::newRow("F1") << int(Qt::Key_F1) << 122u << quint32(XKB_KEY_F1);
        QTest::newRow("F2") << int(Qt::Key_F2) << 120u << quint32(XKB_KEY_F2);
        QTest::newRow("F3") << int(Qt::Key_F3) << 99u << quint32(XKB_KEY_F3);
        QTest::newRow("F4") << int(Qt::Key_F4) << 118u << quint32(XKB_KEY_F4);
        QTest::newRow("F5") << int(Qt::Key_F5) << 96u << quint32(XKB_KEY_F5);
        QTest::newRow("F6") << int(Qt::Key_F6) << 97u << quint32(XKB_KEY_F6);
        QTest::newRow("F7") << int(Qt::Key_F7) << 98u << quint32(XKB_KEY_F7);
        QTest::newRow("F8") << int(Qt::Key_F8) << 100u << quint32(XKB_KEY_F8);
        QTest::newRow("F9") << int(Qt::Key_F9) << 101u << quint32(XKB_KEY_F9);
        QTest::newRow("F10") << int(Qt::Key_F10) << 109u << quint32(XKB_KEY_F10);
        QTest::newRow("F11") << int(Qt::Key_F11) << 103u << quint32(XKB_KEY_F11);
        QTest::newRow("F12") << int(Qt::Key_F12) << 111u << quint32(XKB_KEY_F12);
        QTest::newRow("minus") << int(Qt::Key_Minus) << 27u << quint32(XKB_KEY_minus);
        QTest::newRow("equal") << int(Qt::Key_Equal) << 24u << quint32(XKB_KEY_equal);
        QTest::newRow("bracketleft")
            << int(Qt::Key_BracketLeft) << 33u << quint32(XKB_KEY_bracketleft);
        QTest::newRow("bracketright")
            << int(Qt::Key_BracketRight) << 30u << quint32(XKB_KEY_bracketright);
        QTest::newRow("semicolon") << int(Qt::Key_Semicolon) << 41u << quint32(XKB_KEY_semicolon);
        QTest::newRow("apostrophe")
            << int(Qt::Key_Apostrophe) << 39u << quint32(XKB_KEY_apostrophe);
        QTest::newRow("backslash") << int(Qt::Key_Backslash) << 42u << quint32(XKB_KEY_backslash);
        QTest::newRow("comma") << int(Qt::Key_Comma) << 43u << quint32(XKB_KEY_comma);
        QTest::newRow("period") << int(Qt::Key_Period) << 47u << quint32(XKB_KEY_period);
        QTest::newRow("slash") << int(Qt::Key_Slash) << 44u << quint32(XKB_KEY_slash);
        QTest::newRow("grave") << int(Qt::Key_QuoteLeft) << 50u << quint32(XKB_KEY_grave);
    }

    void qtRoundTrip()
    {
        QFETCH(int, qtKey);
        QFETCH(quint32, keyCode);
        QFETCH(quint32, keysym);
        QCOMPARE(KeyMap::keyCodeForQtKey(qtKey), std::optional<quint32>(keyCode));
        QCOMPARE(KeyMap::qtKeyForKeyCode(keyCode), std::optional<int>(qtKey));
        QCOMPARE(KeyMap::keysymForKeyCode(keyCode), std::optional<quint32>(keysym));
        QCOMPARE(KeyMap::keyCodeForKeysym(keysym), std::optional<quint32>(keyCode));
    }

    void shiftedSymbolsGiveTheirKey_data()
    {
        QTest::addColumn<int>("qtKey");
        QTest::addColumn<int>("baseKey");
        QTest::newRow("!") << int(Qt::Key_Exclam) << int(Qt::Key_1);
        QTest::newRow("@") << int(Qt::Key_At) << int(Qt::Key_2);
        QTest::newRow("^") << int(Qt::Key_AsciiCircum) << int(Qt::Key_6);
        QTest::newRow(")") << int(Qt::Key_ParenRight) << int(Qt::Key_0);
        QTest::newRow("?") << int(Qt::Key_Question) << int(Qt::Key_Slash);
        QTest::newRow("~") << int(Qt::Key_AsciiTilde) << int(Qt::Key_QuoteLeft);
        QTest::newRow("Backtab") << int(Qt::Key_Backtab) << int(Qt::Key_Tab);
    }

    void shiftedSymbolsGiveTheirKey()
    {
        QFETCH(int, qtKey);
        QFETCH(int, baseKey);
        QCOMPARE(KeyMap::keyCodeForQtKey(qtKey), KeyMap::keyCodeForQtKey(baseKey));
    }

    void upperCaseKeysymsGiveTheLetter()
    {
        QCOMPARE(KeyMap::keyCodeForKeysym(XKB_KEY_C), std::optional<quint32>(8));
        QCOMPARE(KeyMap::keyCodeForKeysym(XKB_KEY_Z), std::optional<quint32>(6));
        QCOMPARE(KeyMap::keyCodeForKeysym(XKB_KEY_Cyrillic_es), std::nullopt);
        QCOMPARE(KeyMap::keyCodeForQtKey(Qt::Key_Control), std::nullopt);
    }

    void modifiersRoundTrip_data()
    {
        QTest::addColumn<int>("qt");
        QTest::addColumn<quint32>("mask");
        QTest::addColumn<quint16>("x11");
        QTest::newRow("none") << 0 << 0u << quint16(0);
        QTest::newRow("Ctrl") << int(Qt::ControlModifier) << 256u << quint16(0x04);
        QTest::newRow("Shift") << int(Qt::ShiftModifier) << 512u << quint16(0x01);
        QTest::newRow("Alt") << int(Qt::AltModifier) << 2048u << quint16(0x08);
        QTest::newRow("Super") << int(Qt::MetaModifier) << 4096u << quint16(0x40);
        QTest::newRow("Ctrl+Shift")
            << int(Qt::ControlModifier | Qt::ShiftModifier) << 768u << quint16(0x05);
        QTest::newRow("all") << int(Qt::ControlModifier | Qt::ShiftModifier | Qt::AltModifier |
                                    Qt::MetaModifier)
                             << 6912u << quint16(0x4d);
    }

    void modifiersRoundTrip()
    {
        QFETCH(int, qt);
        QFETCH(quint32, mask);
        QFETCH(quint16, x11);
        const Qt::KeyboardModifiers modifiers(qt);
        const KeyMap::X11ModifierBits bits;
        QCOMPARE(KeyMap::maskForQtModifiers(modifiers), mask);
        QCOMPARE(KeyMap::qtModifiersForMask(mask), modifiers);
        QCOMPARE(KeyMap::x11Modifiers(mask, bits), x11);
        QCOMPARE(KeyMap::maskForX11Modifiers(x11, bits), mask);
        // Caps Lock (Lock) and Num Lock (Mod2 here) never show in the mask.
        QCOMPARE(KeyMap::maskForX11Modifiers(x11 | 0x02 | 0x10, bits), mask);
        // The keypad flag is not a modifier of the stored mask either.
        QCOMPARE(KeyMap::maskForQtModifiers(modifiers | Qt::KeypadModifier), mask);
    }

    void modifierBitsFollowTheServer()
    {
        KeyMap::X11ModifierBits bits;
        bits.alt = 0x20;   // Mod3
        bits.super = 0x80; // Mod5
        QCOMPARE(KeyMap::x11Modifiers(KeyMap::optionMask | KeyMap::controlMask, bits),
                 quint16(0xa0));
        QCOMPARE(KeyMap::maskForX11Modifiers(0x08 | 0x40, bits), 0u);
    }

    void storedForQt_data()
    {
        QTest::addColumn<int>("qtKey");
        QTest::addColumn<int>("modifiers");
        QTest::addColumn<bool>("recorded");
        QTest::addColumn<quint32>("keyCode");
        QTest::addColumn<quint32>("mask");
        QTest::newRow("Ctrl+Shift+Space")
            << int(Qt::Key_Space) << int(Qt::ControlModifier | Qt::ShiftModifier) << true << 49u
            << 768u;
        QTest::newRow("all four + K")
            << int(Qt::Key_K)
            << int(Qt::ControlModifier | Qt::ShiftModifier | Qt::AltModifier | Qt::MetaModifier)
            << true << 40u << 6912u;
        QTest::newRow("Ctrl+F5") << int(Qt::Key_F5) << int(Qt::ControlModifier) << true << 96u
                                 << 256u;
        QTest::newRow("Shift+! is Shift+1")
            << int(Qt::Key_Exclam) << int(Qt::ShiftModifier) << true << 18u << 512u;
        QTest::newRow("Space alone") << int(Qt::Key_Space) << 0 << false << 0u << 0u;
        QTest::newRow("Escape alone") << int(Qt::Key_Escape) << 0 << false << 0u << 0u;
        QTest::newRow("keypad flag alone")
            << int(Qt::Key_5) << int(Qt::KeypadModifier) << false << 0u << 0u;
        QTest::newRow("unknown key")
            << int(Qt::Key_Launch0) << int(Qt::ControlModifier) << false << 0u << 0u;
    }

    void storedForQt()
    {
        QFETCH(int, qtKey);
        QFETCH(int, modifiers);
        QFETCH(bool, recorded);
        QFETCH(quint32, keyCode);
        QFETCH(quint32, mask);
        const auto stored = KeyMap::storedForQt(qtKey, Qt::KeyboardModifiers(modifiers));
        QCOMPARE(stored.has_value(), recorded);
        if (recorded) {
            QCOMPARE(stored->keyCode, keyCode);
            QCOMPARE(stored->modifiers, mask);
        }
    }

    void display_data()
    {
        QTest::addColumn<quint32>("keyCode");
        QTest::addColumn<quint32>("mask");
        QTest::addColumn<QString>("glyphs");
        QTest::addColumn<QStringList>("parts");
        QTest::newRow("Command+Shift+Space")
            << 49u << 768u << QStringLiteral("⌘⇧Space")
            << QStringList{QStringLiteral("Ctrl"), QStringLiteral("Shift"),
                           QStringLiteral("Space")};
        QTest::newRow("Option+Control+K")
            << 40u << 6144u << QStringLiteral("⌥⌃K")
            << QStringList{QStringLiteral("Alt"), QStringLiteral("Super"), QStringLiteral("K")};
        QTest::newRow("order is fixed")
            << 40u << 6912u << QStringLiteral("⌘⇧⌥⌃K")
            << QStringList{QStringLiteral("Ctrl"), QStringLiteral("Shift"), QStringLiteral("Alt"),
                           QStringLiteral("Super"), QStringLiteral("K")};
        QTest::newRow("F5 is outside the name table")
            << 96u << 256u << QStringLiteral("⌘Key96")
            << QStringList{QStringLiteral("Ctrl"), QStringLiteral("Key96")};
        QTest::newRow("unknown code")
            << 122u << 0u << QStringLiteral("Key122") << QStringList{QStringLiteral("Key122")};
        QTest::newRow("Return") << 36u << 512u << QStringLiteral("⇧Return")
                                << QStringList{QStringLiteral("Shift"), QStringLiteral("Return")};
        QTest::newRow("other bits ignored")
            << 8u << (256u | 1u | 0x10000u) << QStringLiteral("⌘C")
            << QStringList{QStringLiteral("Ctrl"), QStringLiteral("C")};
        QTest::newRow("code beyond 16 bits") << 4294967295u << 0u << QStringLiteral("Key4294967295")
                                             << QStringList{QStringLiteral("Key4294967295")};
    }

    void display()
    {
        QFETCH(quint32, keyCode);
        QFETCH(quint32, mask);
        QFETCH(QString, glyphs);
        QFETCH(QStringList, parts);
        QCOMPARE(KeyMap::glyphText(keyCode, mask), glyphs);
        QCOMPARE(KeyMap::displayParts(keyCode, mask), parts);
        QCOMPARE(KeyMap::displayText(keyCode, mask), parts.join(QLatin1Char('+')));
    }

    void modifierKeysyms_data()
    {
        QTest::addColumn<quint32>("keysym");
        QTest::addColumn<bool>("modifier");
        QTest::newRow("Control_L") << quint32(XKB_KEY_Control_L) << true;
        QTest::newRow("Shift_R") << quint32(XKB_KEY_Shift_R) << true;
        QTest::newRow("Alt_L") << quint32(XKB_KEY_Alt_L) << true;
        QTest::newRow("Super_L") << quint32(XKB_KEY_Super_L) << true;
        QTest::newRow("Caps_Lock") << quint32(XKB_KEY_Caps_Lock) << true;
        QTest::newRow("Num_Lock") << quint32(XKB_KEY_Num_Lock) << true;
        QTest::newRow("ISO_Level3_Shift") << quint32(XKB_KEY_ISO_Level3_Shift) << true;
        QTest::newRow("ISO_Next_Group") << quint32(XKB_KEY_ISO_Next_Group) << true;
        QTest::newRow("c") << quint32(XKB_KEY_c) << false;
        QTest::newRow("Escape") << quint32(XKB_KEY_Escape) << false;
        QTest::newRow("ISO_Left_Tab") << quint32(XKB_KEY_ISO_Left_Tab) << false;
    }

    void modifierKeysyms()
    {
        QFETCH(quint32, keysym);
        QFETCH(bool, modifier);
        QCOMPARE(KeyMap::isModifierKeysym(keysym), modifier);
    }
};

QTEST_GUILESS_MAIN(TestKeyMap)
#include "tst_keymap.moc"
