#!/usr/bin/env python3
# Writes a C program whose output is kivcoreservices2/_layout.py: the sizes and offsets of the records of _records.py,
# as the compiler of the C headers sees them.
#
#   make_layout.py _records.py >layout.c
import importlib.util
import sys

sys.dont_write_bytecode = True

spec = importlib.util.spec_from_file_location("_records", sys.argv[1])
records = importlib.util.module_from_spec(spec)
spec.loader.exec_module(records)

print("""#include <KIVCoreServices2/KIVCoreServices2.h>

#include <stdio.h>

#define SIZE(type, member) sizeof(((type *)0)->member)

int main(int argc, char **argv)
{
    if (argc != 4)
        return 2;
    puts("# Written by the build from the C headers.");
    printf("VERSION = \\"%s\\"\\nSONAME = \\"%s\\"\\nLIBRARY = \\"%s\\"\\n", argv[1], argv[2], argv[3]);
    puts("RECORDS = {");""")
for record in records.ALL:
    name = record.__name__
    print(f'    printf("    \\"{name}\\": (%zu, (", sizeof({name}));')
    for member, *_ in record._fields_:
        print(f'    printf("(\\"{member}\\", %zu, %zu), ", offsetof({name}, {member}), SIZE({name}, {member}));')
    print('    puts(")),");')
print("""    puts("}");
    return 0;
}""")
