<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en" sourcelanguage="en">
<context>
    <name>CompletionStream</name>
    <message numerus="yes">
        <source>… (%1 bytes more)</source>
        <translation>
            <numerusform>… (%1 byte more)</numerusform>
            <numerusform>… (%1 bytes more)</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>FloatingPanelView</name>
    <message numerus="yes">
        <source>… and %1 more character(s)</source>
        <translation>
            <numerusform>… and %1 more character</numerusform>
            <numerusform>… and %1 more characters</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>ServerModels</name>
    <message numerus="yes">
        <source>Connected to %1: %n model(s) (%2).</source>
        <translation>
            <numerusform>Connected to %1: %n model (%2).</numerusform>
            <numerusform>Connected to %1: %n models (%2).</numerusform>
        </translation>
    </message>
</context>
</TS>
