/*
 * halv_userdata.h - user data trees and their text language.
 */
#ifndef HALV_USERDATA_H
#define HALV_USERDATA_H

#include "halv_base.h"

HALV_BEGIN_DECLS

HALV_END_DECLS

#endif /* HALV_USERDATA_H */
