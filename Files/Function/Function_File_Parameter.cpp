// Program parameters and environment variables.
#include "Files/Function/Function_File_Internal.h"
#include "Files/Run/Run_Command.h"
#include "Platform/MemoryManager.h"

int ParamCount() {
    return g_nArgC;
}

void ParamStr(const char*& Result, int p) {
    bool inRange = p >= 0 && p < g_nArgC;
    Result = inRange ? KXStrDup(g_pArgV[p]) : nullptr;
}

void GetSecure() {
    Secure_Mode = false;
}

void F_ParameterCount(RValue& result, CInstance*, CInstance*, int, RValue*) {
    SetReal(result, g_nArgC);
}

void F_ParameterString(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    const char* text;
    ParamStr(text, KXGetInt32(arg, 0));
    HostText owned(const_cast<char*>(text));
    KXCreateString(&result, owned.text);
}

void F_EnvironmentGetVariable(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    SetNoText(result);
    const char* name = KXGetString(arg, 0);
    if (!name) return;
    HostText value(EnvironmentGetVariable(name));
    KXCreateString(&result, value.text);
}
