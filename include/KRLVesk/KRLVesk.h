/**
 * @file
 * All of KRLVesk.
 */
#ifndef KRLVESK_KRLVESK_H
#define KRLVESK_KRLVESK_H

#include <KRLVesk/KRLException.h>
#include <KRLVesk/KRLFakeDict.h>
#include <KRLVesk/KRTDictionary.h>
#include <KRLVesk/KRTError.h>
#include <KRLVesk/KRTPhone.h>
#include <KRLVesk/KRTPhoneManager.h>
#include <KRLVesk/KRTPluginValidator.h>
#include <KRLVesk/KRTRingtoneManager.h>
#include <KRLVesk/KRTVesk.h>

#endif
