# Zephly::tools_view_page: the page, embedded. It provides assets() of tools/view/assets.h.
zephly_library(tools_view_page no_page.cpp)
