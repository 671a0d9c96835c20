// Structs as JSON objects.
#include "Files/Base/Json.h"
#include "Files/Base/KXObjectBase.h"
#include "Files/Function/Function_File.h"

json_object* EncodeObject(KXObjectBase* obj) {
    kx::JsonTree object(kx::MadeJson(json_object_new_object()));
    for (int place = 0; place < obj->Places(); ++place) {
        if (!obj->NameAt(place)) continue;
        RValue value = *obj->ValueAt(place);  // the struct's; the encoder only reads it
        kx::AddMember(object, obj->NameAt(place), kx::JsonTree(EncodeValue(&value)));
    }
    return object.Release();
}
