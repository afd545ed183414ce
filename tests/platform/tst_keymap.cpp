#include "platform/KeyMap.h"

#include <QTest>

#include <set>
#include <xkbcommon/xkbcommon-keysyms.h>

using namespace Qt::StringLiterals;

class TestKeyMap : public QObject {
    Q_OBJECT

private slots:
    // Every key of the table is found again from its Qt key, code and keysym.
    void tableRoundTrips()
    {
        std::set<quint32> codes;
        int named = 0;
        for (const KeyMap::Key& key : KeyMap::keys()) {
            QVERIFY2(codes.insert(key.keyCode).second, key.name);
            QVERIFY(key.keyCode != KeyMap::unknownKeyCode);
            QCOMPARE(KeyMap::keyCodeForQtKey(key.qtKey), std::optional<quint32>(key.keyCode));
            QCOMPARE(KeyMap::qtKeyForKeyCode(key.keyCode), std::optional<int>(key.qtKey));
            QCOMPARE(KeyMap::keysymForKeyCode(key.keyCode), std::optional<quint32>(key.keysym));
            QCOMPARE(KeyMap::keyCodeForKeysym(key.keysym), std::optional<quint32>(key.keyCode));
            named += key.hasDisplayName ? 1 : 0;
        }
        // The letters, the digits, Return, Tab and Space.
        QCOMPARE(named, 39);
        // The stored codes are those of the ANSI keyboard.
        for (const auto& [qtKey, code] : {std::pair{Qt::Key_A, 0u},
                                          {Qt::Key_C, 8u},
                                          {Qt::Key_K, 40u},
                                          {Qt::Key_5, 23u},
                                          {Qt::Key_Space, 49u},
                                          {Qt::Key_F5, 96u},
                                          {Qt::Key_Up, 126u}}) {
            QCOMPARE(KeyMap::keyCodeForQtKey(qtKey), std::optional<quint32>(code));
        }
    }

    void otherKeys()
    {
        // Shifted symbols give the key they sit on.
        QCOMPARE(KeyMap::keyCodeForQtKey(Qt::Key_Exclam), KeyMap::keyCodeForQtKey(Qt::Key_1));
        QCOMPARE(KeyMap::keyCodeForQtKey(Qt::Key_Question), KeyMap::keyCodeForQtKey(Qt::Key_Slash));
        QCOMPARE(KeyMap::keyCodeForQtKey(Qt::Key_Backtab), KeyMap::keyCodeForQtKey(Qt::Key_Tab));
        // Upper-case keysyms give the letter.
        QCOMPARE(KeyMap::keyCodeForKeysym(XKB_KEY_A), std::optional<quint32>(0));
        QCOMPARE(KeyMap::keyCodeForKeysym(XKB_KEY_Z), std::optional<quint32>(6));
        QCOMPARE(KeyMap::keyCodeForKeysym(XKB_KEY_Cyrillic_es), std::nullopt);
        QCOMPARE(KeyMap::keyCodeForQtKey(Qt::Key_Control), std::nullopt);
        QCOMPARE(KeyMap::qtKeyForKeyCode(10), std::nullopt);
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
        QTest::addColumn<quint32>("keyCode"); // 0 with mask 0: not recorded
        QTest::addColumn<quint32>("mask");
        QTest::newRow("Ctrl+Shift+Space")
            << int(Qt::Key_Space) << int(Qt::ControlModifier | Qt::ShiftModifier) << 49u << 768u;
        QTest::newRow("Ctrl+F5") << int(Qt::Key_F5) << int(Qt::ControlModifier) << 96u << 256u;
        QTest::newRow("Shift+! is Shift+1")
            << int(Qt::Key_Exclam) << int(Qt::ShiftModifier) << 18u << 512u;
        QTest::newRow("Space alone") << int(Qt::Key_Space) << 0 << 0u << 0u;
        QTest::newRow("keypad flag alone") << int(Qt::Key_5) << int(Qt::KeypadModifier) << 0u << 0u;
        QTest::newRow("unknown key")
            << int(Qt::Key_Launch0) << int(Qt::ControlModifier) << 0u << 0u;
    }

    void storedForQt()
    {
        QFETCH(int, qtKey);
        QFETCH(int, modifiers);
        QFETCH(quint32, keyCode);
        QFETCH(quint32, mask);
        const auto stored = KeyMap::storedForQt(qtKey, Qt::KeyboardModifiers(modifiers));
        QCOMPARE(stored.has_value(), mask != 0);
        if (stored) {
            QCOMPARE(stored->keyCode, keyCode);
            QCOMPARE(stored->modifiers, mask);
        }
    }

    void display_data()
    {
        QTest::addColumn<quint32>("keyCode");
        QTest::addColumn<quint32>("mask");
        QTest::addColumn<QString>("glyphs");
        QTest::addColumn<QString>("text");
        QTest::newRow("Option+Control+K") << 40u << 6144u << u"⌥⌃K"_s << u"Alt+Super+K"_s;
        QTest::newRow("order is fixed")
            << 40u << 6912u << u"⌘⇧⌥⌃K"_s << u"Ctrl+Shift+Alt+Super+K"_s;
        QTest::newRow("F5 is outside the name table")
            << 96u << 256u << u"⌘Key96"_s << u"Ctrl+Key96"_s;
        QTest::newRow("unknown code") << 122u << 0u << u"Key122"_s << u"Key122"_s;
        QTest::newRow("Return") << 36u << 512u << u"⇧Return"_s << u"Shift+Return"_s;
        QTest::newRow("other bits ignored")
            << 8u << (256u | 1u | 0x10000u) << u"⌘C"_s << u"Ctrl+C"_s;
        QTest::newRow("code beyond 16 bits")
            << 4294967295u << 0u << u"Key4294967295"_s << u"Key4294967295"_s;
    }

    void display()
    {
        QFETCH(quint32, keyCode);
        QFETCH(quint32, mask);
        QFETCH(QString, glyphs);
        QFETCH(QString, text);
        QCOMPARE(KeyMap::glyphText(keyCode, mask), glyphs);
        QCOMPARE(KeyMap::displayParts(keyCode, mask).join(u'+'), text);
        QCOMPARE(KeyMap::displayText(keyCode, mask), text);
    }

    void modifierKeysyms()
    {
        for (quint32 keysym : {XKB_KEY_Shift_L, XKB_KEY_Hyper_R, XKB_KEY_ISO_Lock,
                               XKB_KEY_ISO_Level5_Lock, XKB_KEY_Mode_switch, XKB_KEY_Num_Lock}) {
            QVERIFY2(KeyMap::isModifierKeysym(keysym), qPrintable(QString::number(keysym, 16)));
        }
        for (quint32 keysym :
             {XKB_KEY_c, XKB_KEY_ISO_Left_Tab, XKB_KEY_Shift_L - 1, XKB_KEY_Hyper_R + 1}) {
            QVERIFY2(!KeyMap::isModifierKeysym(keysym), qPrintable(QString::number(keysym, 16)));
        }
    }
};

QTEST_GUILESS_MAIN(TestKeyMap)
#include "tst_keymap.moc"
