#pragma once
// The whole public interface of libtarnxml.
#include "tarnxml/XmlDiagnostics.h"
#include "tarnxml/XmlNode.h"
#include "tarnxml/XmlEdit.h"
#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlIterators.h"
#include "tarnxml/XPath.h"
#include "tarnxml/XmlReader.h"
#include "tarnxml/XmlWriter.h"
#include "tarnxml/XmlHelper.h"
#include "tarnxml/tarnxml_version.h"
