/*
 * dpk_hvsup.h - the whole exported interface of the Halvern support library.
 * Hosts and plug-ins include this one header and link with -ldpk_hvsup.
 */
#ifndef DPK_HVSUP_H
#define DPK_HVSUP_H

#include "halv_base.h"
#include "halv_core.h"
#include "halv_thread.h"
#include "halv_util.h"
#include "halv_streams.h"
#include "halv_text.h"
#include "halv_env.h"
#include "halv_userdata.h"
#include "halv_modules.h"
#include "halv_headers.h"

#endif /* DPK_HVSUP_H */
