// The registry of settings: names bound to variables, so that the configuration file can assign
// by name.
#pragma once

#include "lib/smap.h"
#include "lib/str.h"

class setting_container {
public:
    enum setting_type { type_integer = 0, type_string = 1, type_boolean = 2 };
    enum permission_type { read_and_write = 0, read_only = 1, write_only = 2 };

    struct setting {
        setting_type type = type_integer;
        permission_type permission = read_and_write;
        str name;                  // without index
        void* variable = nullptr;  // int, str or bool, by type
        bool confidential = false;
    };

    // Registers every setting, then reads the configuration file.
    void init();
    void register_all();

    // Bind a key (the name, or the name followed by the index in decimal) to a variable, whose
    // value stays as it is. A key registered before is bound anew and keeps its permission.
    void register_bool(str const& name, bool& variable, bool confidential);
    void register_bool(str const& name, int index, bool& variable, bool confidential);
    void register_int(str const& name, int& variable, bool confidential);
    void register_int(str const& name, int index, int& variable, bool confidential);
    void register_str(str const& name, str& variable, bool confidential);
    void register_str(str const& name, int index, str& variable, bool confidential);

    // Assigns the value to the setting of the key `name` + `idx`; ignored when there is none.
    // `perm` holds "r" and "w" in either case; without either the permission stays.
    void set_provision(str const& name, str const& value, str const& perm, str const& idx);

    smap<str, setting> registered;

private:
    void register_variable(str const& key, str const& name, setting_type type, void* variable,
                           bool confidential);
};

extern setting_container settings;
