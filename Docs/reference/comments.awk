# Completes comments for Doxygen, line by line so that line numbers stay:
# - an anonymous enumeration below a typedef holds the values of that type, and is listed only with a comment;
# - text below the last @param, @retval or @return is about the whole operation, not about that item.
/^typedef u?int32_t [A-Za-z0-9]+;$/ { type = $3; sub(/;$/, "", type); print; next }
/^enum$/ && type != "" { $0 = "/** Values of " type ". */ enum" }
{ type = "" }
/^ *\/\*\*/ { in_items = 0 }
/^ *\* @(param|retval|return)/ { in_items = 1; print; next }
in_items && /^ *\* [^ ]/ { sub(/\* /, "* @remark "); in_items = 0 }
/^ *\*\/?$/ { in_items = 0 }
{ print }
